#!/usr/bin/env bash
# Makes a GeoJSON file of the countries of the world from npm package world-atlas, which has the borders of Natural Earth
# as TopoJSON. Needs npm and node 18 or newer.
#
#   scripts/make-countries.sh [FILE.geojson [50m|110m|10m]]      (1:50 million unless said otherwise)
#
# The file in the repository:   scripts/make-countries.sh host/data/countries.geojson
#
# Coordinates are rounded to thousandths of a degree, 110 m. Rings over the date line, which the package has in one piece,
# are cut there, and Antarctica's is led to the pole. Edges of more than a degree, such as that along the 49th parallel,
# are cut into pieces of at most one: an edge is a straight line of longitude and latitude in GeoJSON and an arc of a great
# circle on the sphere, and so both run within 130 m of one another.
set -euo pipefail
output=$(realpath -m "${1:-countries.geojson}")
scale=${2:-50m}
[[ $scale =~ ^(10|50|110)m$ ]] || {
    echo "usage: scripts/make-countries.sh [FILE.geojson [50m|110m|10m]]" >&2
    exit 2
}
command -v npm >/dev/null && command -v node >/dev/null || { echo "this needs npm and node" >&2; exit 2; }

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
npm pack --silent world-atlas@2.0.2 >/dev/null
tar xzf world-atlas-2.0.2.tgz "package/countries-$scale.json"

cat > convert.mjs <<'SCRIPT'
import { readFileSync, writeFileSync } from 'node:fs'

const [output, scale] = process.argv.slice(2)
const topology = JSON.parse(readFileSync(`package/countries-${scale}.json`, 'utf8'))
const { scale: [sx, sy], translate: [tx, ty] } = topology.transform

// An arc is a list of steps on a grid. Cut as arcs, borders stay the same on both sides. A step over the date line is
// one around the world; those are short and stay whole.
const rounded = v => Math.round(v * 1000) / 1000 + 0
const arcs = topology.arcs.map(steps => {
  let x = 0, y = 0, before = null
  const points = []
  for (const [dx, dy] of steps) {
    x += dx
    y += dy
    const point = [rounded(x * sx + tx), rounded(y * sy + ty)]
    if (before) {
      const far = Math.max(Math.abs(point[0] - before[0]), Math.abs(point[1] - before[1]))
      const pieces = far > 180 ? 1 : Math.ceil(far)
      for (let k = 1; k < pieces; k++)
        points.push([0, 1].map(axis => rounded(before[axis] + (point[axis] - before[axis]) * k / pieces)))
    }
    points.push(point)
    before = point
  }
  return points
})

// A ring is a list of arcs, ~i being arc i backwards; each begins where the one before ends. Its longitudes are made to
// go on over the date line, to 181 and so on; one that ends a whole turn from where it began holds a pole, and is led there.
const ring = numbers => {
  const points = []
  for (const number of numbers) {
    const arc = number < 0 ? [...arcs[~number]].reverse() : arcs[number]
    for (const [x, y] of arc) {
      const last = points.at(-1)
      const here = last ? [x + 360 * Math.round((last[0] - x) / 360), y] : [x, y]
      if (!last || last[0] !== here[0] || last[1] !== here[1]) points.push(here)
    }
  }
  const [first, last] = [points[0], points.at(-1)]
  if (first[0] !== last[0]) {
    const pole = first[1] < 0 ? -90 : 90
    points.push([last[0], pole], [first[0], pole], first)
  }
  return points
}

// The part of a closed ring on one side of a meridian (Sutherland and Hodgman 1974).
const clipped = (points, meridian, side) => {
  const inside = p => side * (p[0] - meridian) >= 0
  const kept = []
  for (let i = 1; i < points.length; i++) {
    const [a, b] = [points[i - 1], points[i]]
    if (inside(a) !== inside(b))
      kept.push([meridian, rounded(a[1] + (b[1] - a[1]) * (meridian - a[0]) / (b[0] - a[0]))])
    if (inside(b)) kept.push(b)
  }
  const ring = kept.filter((p, i) => i === 0 || p[0] !== kept[i - 1][0] || p[1] !== kept[i - 1][1])
  if (ring.length > 0 && (ring[0][0] !== ring.at(-1)[0] || ring[0][1] !== ring.at(-1)[1])) ring.push(ring[0])
  return ring
}
// A polygon's parts between the date line and itself, as GeoJSON wants them: one for most.
const parts = rings => {
  const whole = rings.map(ring).filter(points => points.some(p => Math.abs(p[1]) < 89.99)) // not the pole as a line
  return [0, -360, 360].map(shift => whole
    .map(points => clipped(clipped(points.map(([x, y]) => [rounded(x + shift), y]), -180, 1), 180, -1))
    .filter(points => points.length >= 4 && points.some(p => p[0] !== points[0][0]))
  ).filter(polygon => polygon.length > 0)
}

let vertices = 0, rings = 0
const features = topology.objects.countries.geometries.map(g => {
  const polygons = (g.type === 'Polygon' ? [g.arcs] : g.arcs).flatMap(parts)
  for (const p of polygons)
    for (const r of p) {
      rings++
      vertices += r.length - 1
      const [first, last] = [r[0], r.at(-1)]
      if (first[0] !== last[0] || first[1] !== last[1]) throw new Error(`${g.properties.name}: a ring that is not closed`)
      for (let i = 1; i < r.length; i++)
        if (Math.abs(r[i][0] - r[i - 1][0]) > 180 && Math.abs(r[i][1]) !== 90)
          throw new Error(`${g.properties.name}: an edge around the world`)
    }
  const geometry = polygons.length === 1 ? { type: 'Polygon', coordinates: polygons[0] }
                                         : { type: 'MultiPolygon', coordinates: polygons }
  return { type: 'Feature', properties: { name: g.properties.name, id: g.id }, geometry }
})
features.sort((a, b) => (a.properties.name < b.properties.name ? -1 : 1))
writeFileSync(output, '{"type":"FeatureCollection","features":[\n' +
  features.map(f => JSON.stringify(f)).join(',\n') + '\n]}\n')
console.log(`${features.length} countries, ${rings} rings, ${vertices} vertices in ${output}`)
SCRIPT
node convert.mjs "$output" "$scale"
