#!/usr/bin/env bash
# Installs everything Pelkam needs to build, run and test on Debian 12.
set -euo pipefail
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update
$SUDO apt-get install -y --no-install-recommends \
  build-essential cmake pkg-config clang libclang-rt-14-dev \
  qtbase5-dev qtbase5-dev-tools libqt5serialport5-dev libqt5svg5-dev \
  qttools5-dev qttools5-dev-tools qttranslations5-l10n \
  libquazip1-qt5-dev zlib1g-dev libqwt-qt5-dev libqt5websockets5-dev qtkeychain-qt5-dev \
  fonts-material-design-icons-iconfont \
  socat xvfb xauth python3 ca-certificates iproute2 ser2net \
  desktop-file-utils appstream dpkg-dev file help2man lintian man-db bash-completion
if ! command -v node >/dev/null 2>&1 || ! command -v npm >/dev/null 2>&1; then
  $SUDO apt-get install -y --no-install-recommends nodejs npm
fi
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
if [ -f "$here/tools/virtual-board/package-lock.json" ]; then
  (cd "$here/tools/virtual-board" && npm ci --no-audit --no-fund)
fi
