#!/usr/bin/env bash
# Regenerates the media the ad server embeds: a 4-second H.264 test-pattern video (160x90,
# 10 fps, moov atom first so a player can start before the whole file arrives) and the 320x50
# still the NonLinear creative shows. Needs ffmpeg, which the build itself does not: the results
# are committed beside this script.
set -euo pipefail
cd "$(dirname "$0")"

ffmpeg -hide_banner -loglevel error -y \
  -f lavfi -i testsrc=size=160x90:rate=10:duration=4 \
  -c:v libx264 -profile:v baseline -pix_fmt yuv420p -movflags +faststart \
  -map_metadata -1 -fflags +bitexact -flags:v +bitexact \
  zorva.mp4

ffmpeg -hide_banner -loglevel error -y \
  -f lavfi -i testsrc=size=320x50:rate=1 -frames:v 1 \
  -map_metadata -1 -fflags +bitexact -flags:v +bitexact \
  zorva.png
