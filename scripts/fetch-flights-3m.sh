#!/usr/bin/env bash
# Fetches 3,000,000 US domestic flights of 2001 from the npm package vega-datasets and writes them as a CSV file of the
# same columns as host/data/flights-100k.csv (97 MB). Needs npm and node 18 or newer.
#
#   scripts/fetch-flights-3m.sh [FILE.csv]        default: flights-3m.csv in the current folder
set -euo pipefail
output=$(realpath -m "${1:-flights-3m.csv}")
command -v npm >/dev/null && command -v node >/dev/null || { echo "this needs npm and node" >&2; exit 2; }

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
npm install --silent --no-audit --no-fund --ignore-scripts vega-datasets@3.2.1 hyparquet@1.31.5 hyparquet-compressors@1.1.2

cat > convert.mjs <<'SCRIPT'
import { createWriteStream } from 'node:fs'
import { once } from 'node:events'
import { asyncBufferFromFile, parquetMetadataAsync, parquetReadObjects } from 'hyparquet'
import { compressors } from 'hyparquet-compressors'

const columns = ['date', 'delay', 'distance', 'origin', 'destination']
const two = n => String(n).padStart(2, '0')
const moment = d =>
  `${d.getUTCFullYear()}-${two(d.getUTCMonth() + 1)}-${two(d.getUTCDate())} ${two(d.getUTCHours())}:${two(d.getUTCMinutes())}`
const field = v => (v == null ? '' : v instanceof Date ? moment(v) : String(v))

const file = await asyncBufferFromFile('node_modules/vega-datasets/data/flights-3m.parquet')
const metadata = await parquetMetadataAsync(file)
const rows = Number(metadata.num_rows), step = 200000
const out = createWriteStream(process.argv[2])
out.write(columns.join(',') + '\n')
for (let rowStart = 0; rowStart < rows; rowStart += step) {
  const chunk = await parquetReadObjects({ file, metadata, columns, compressors, rowStart, rowEnd: Math.min(rowStart + step, rows) })
  const text = chunk.map(row => columns.map(c => field(row[c])).join(',')).join('\n') + '\n'
  if (!out.write(text)) await once(out, 'drain')
}
out.end()
await once(out, 'finish')
console.log(`${rows} rows in ${process.argv[2]}`)
SCRIPT
node convert.mjs "$output"
