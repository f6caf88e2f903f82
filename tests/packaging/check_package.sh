#!/usr/bin/env bash
# Validates the desktop entry and AppStream data, builds the .deb with CPack,
# checks it with lintian, renders its man pages, asks its bash completion,
# installs it with dpkg (as root; otherwise unpacks it) and starts the
# installed pelkam. Arguments: source dir, build dir.
set -euo pipefail
src="$1"
build="$2"
desktop-file-validate "$src/resources/linux/dev.tarvel.Pelkam.desktop"
appstreamcli validate --no-net "$src/resources/linux/dev.tarvel.Pelkam.metainfo.xml"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
(cd "$work" && cpack --config "$build/CPackConfig.cmake" -B "$work" >/dev/null)
deb="$(ls "$work"/pelkam_*.deb)"
dpkg-deb -I "$deb" | grep -E 'Depends:.*libqt5widgets5' >/dev/null || { echo "no Qt dependency in $deb"; exit 1; }
expected=(usr/bin/pelkam usr/bin/pelkam-cli usr/share/applications/dev.tarvel.Pelkam.desktop
  usr/share/metainfo/dev.tarvel.Pelkam.metainfo.xml usr/share/icons/hicolor/scalable/apps/dev.tarvel.Pelkam.svg
  usr/share/icons/hicolor/48x48/apps/dev.tarvel.Pelkam.png usr/share/icons/hicolor/256x256/apps/dev.tarvel.Pelkam.png
  usr/share/man/man1/pelkam.1.gz usr/share/man/man1/pelkam-cli.1.gz usr/share/doc/pelkam/copyright
  usr/share/doc/pelkam/changelog.gz usr/share/bash-completion/completions/pelkam-cli)
listing="$(dpkg-deb -c "$deb")"
for f in "${expected[@]}"; do
  grep -q "\./$f\$" <<<"$listing" || { echo "missing $f in $deb"; exit 1; }
done
# cmake --install puts the same files in place as the package.
cmake --install "$build" --prefix "$work/inst/usr" >/dev/null
diff <(cd "$work/inst" && find . -type f | sort) \
  <(dpkg-deb -c "$deb" | awk '$1 !~ /^d/ {print $6}' | sort) || { echo "cmake --install differs from the .deb"; exit 1; }
# Debian's own checker: no error and no warning.
lintian --fail-on error,warning --tag-display-limit 0 "$deb"
# Both man pages render, and every command of the CLI is in its page.
dpkg-deb -x "$deb" "$work/root"
for page in pelkam pelkam-cli; do
  MANWIDTH=80 man -l "$work/root/usr/share/man/man1/$page.1.gz" >"$work/$page.txt" 2>"$work/man.err"
  grep -q "SYNOPSIS" "$work/$page.txt" || { echo "$page(1) does not render"; cat "$work/man.err"; exit 1; }
done
for section in "EXIT STATUS" EXAMPLES; do
  grep -q "^$section" "$work/pelkam-cli.txt" || { echo "pelkam-cli(1) has no $section"; exit 1; }
done
# The completion offers "sync" for "sy" and knows every command of --help.
completion="$work/root/usr/share/bash-completion/completions/pelkam-cli"
complete_words() {
  bash -c 'source /usr/share/bash-completion/bash_completion; source "$1"; shift
    COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); COMP_LINE="$*"; COMP_POINT=${#COMP_LINE}
    _pelkam_cli; printf "%s\n" "${COMPREPLY[@]}"' _ "$completion" "$@"
}
[ "$(complete_words pelkam-cli --port /dev/ttyACM0 sy)" = "sync" ] || { echo "no sync for sy"; exit 1; }
[ "$(complete_words pelkam-cli --type "" | sort | tr '\n' ' ')" = "esp32 stm32 " ] || { echo "no board types"; exit 1; }
[ "$(complete_words pelkam-cli --port rf)" = "rfc2217://" ] || { echo "no rfc2217:// for rf"; exit 1; }
offered="$(complete_words pelkam-cli "")"
for command in $("$build/src/cli/pelkam-cli" --help | sed -n '/^Commands:/,/^$/p' | awk '/^  [a-z]/ {print $1}'); do
  grep -qx "$command" <<<"$offered" || { echo "completion lacks $command"; exit 1; }
done
export QT_QPA_PLATFORM=offscreen
if [ "$(id -u)" -eq 0 ] && [ -z "${PELKAM_NO_DPKG_INSTALL:-}" ]; then
  dpkg -i "$deb" >/dev/null
  trap 'dpkg -r pelkam >/dev/null 2>&1 || true; rm -rf "$work"' EXIT
  /usr/bin/pelkam --version | grep -q "0.3.0"
  /usr/bin/pelkam-cli --version | grep -q "0.3.0"
  desktop-file-validate /usr/share/applications/dev.tarvel.Pelkam.desktop
else
  "$work/root/usr/bin/pelkam" --version | grep -q "0.3.0"
fi
echo "package $(basename "$deb") is good"
