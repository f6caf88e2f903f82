#!/usr/bin/env bash
# Starts Pelkam. With no USB board plugged in, a virtual MicroPython board is
# started beside it and offered in the connection popup.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
app="$here/build/src/app/pelkam"
shopt -s nullglob
boards=(/dev/ttyACM* /dev/ttyUSB*)
if [ ${#boards[@]} -gt 0 ]; then
  exec "$app" "$@"
fi
link="${PELKAM_VIRTUAL_BOARD:-/tmp/pelkam-virtual-board}"
"$here/tools/virtual-board/virtual-board" --flavour "${PELKAM_VIRTUAL_FLAVOUR:-stm32}" --link "$link" \
  --dump "${TMPDIR:-/tmp}/pelkam-virtual-board-files" >/dev/null &
board=$!
trap 'kill $board 2>/dev/null || true' EXIT
for _ in $(seq 100); do [ -e "$link" ] && break; sleep 0.1; done
echo "No board plugged in: a virtual STM32 board is ready at $link (Connect offers it)."
"$app" --port "$link" "$@"
