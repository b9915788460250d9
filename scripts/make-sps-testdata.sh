#!/usr/bin/env bash
# make-sps-testdata.sh
#
# Regenerates the H.264 sequence-parameter-set samples that ColumbusParserTest decodes. For each sample it
# encodes a few frames of ffmpeg's test pattern with libx264, keeps only the SPS NAL unit, strips the start
# code, the NAL header byte and the emulation-prevention bytes (00 00 03 -> 00 00), and stores that raw
# bit string as common/test/data/<name>.sps. Beside it, <name>.txt records what ffprobe reports for the
# stream (profile, level, width, height), so the test checks the parser against an independent decoder.
# The test reads only the committed files; this script is needed only to refresh them.
#
#   scripts/make-sps-testdata.sh            # installs ffmpeg with apt-get if it is missing
set -euo pipefail

readonly DATA_DIR="$(cd "$(dirname "$0")/.." && pwd)/common/test/data"
WORK="$(mktemp -d /tmp/zor-sps.XXXXXX)"
readonly WORK
trap 'rm -rf "$WORK"' EXIT

ensureFfmpeg() {
    if ! command -v ffmpeg >/dev/null || ! command -v ffprobe >/dev/null; then
        apt-get update -q
        DEBIAN_FRONTEND=noninteractive apt-get install -y -q ffmpeg
    fi
}

# Annex B bytes on stdin -> SPS RBSP bytes on stdout: drops the start code and the NAL header byte, then
# removes every 03 that follows two zero bytes.
spsPayload() {
    xxd -p -c1 | awk '
        NR <= 4 && !started { if ($0 == "01") started = 1; next }   # 00 00 00 01 (or 00 00 01)
        !header { header = 1; next }                                  # nal_unit_type 7 header byte
        { if (zeros >= 2 && $0 == "03") { zeros = 0; next }
          zeros = ($0 == "00") ? zeros + 1 : 0; print }' | xxd -r -p
}

# makeSample NAME SIZE PROFILE LEVEL
makeSample() {
    local name=$1 size=$2 profile=$3 level=$4
    local stream="$WORK/$name.h264"
    ffmpeg -loglevel error -y -f lavfi -i "testsrc=size=$size:rate=25" -frames:v 3 \
        -c:v libx264 -profile:v "$profile" -level "$level" -pix_fmt yuv420p "$stream"
    ffmpeg -loglevel error -y -i "$stream" -c copy -bsf:v filter_units=pass_types=7 -f h264 \
        "$WORK/$name.only-sps"
    spsPayload <"$WORK/$name.only-sps" >"$DATA_DIR/$name.sps"
    ffprobe -v error -select_streams v:0 -show_entries stream=profile,level,width,height \
        -of default=noprint_wrappers=1 "$stream" >"$DATA_DIR/$name.txt"
}

ensureFfmpeg
mkdir -p "$DATA_DIR"
makeSample high-200x120 200x120 high 2.1
makeSample main-352x288 352x288 main 3.0
makeSample baseline-1280x720 1280x720 baseline 3.1
ls -l "$DATA_DIR"
