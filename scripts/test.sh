#!/usr/bin/env bash
# Builds with warnings as errors and runs every test, then runs them all once
# more in a build with AddressSanitizer and UndefinedBehaviorSanitizer.
# The tar reader and pax parser are fuzzed in between (PELKAM_FUZZ_SECONDS each).
# --no-sanitize skips the second run.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$here/scripts/build.sh" "$here/build" -DPELKAM_WERROR=ON
(cd "$here/build" && ctest --output-on-failure)
"$here/scripts/fuzz.sh" "${PELKAM_FUZZ_SECONDS:-60}"
if [ "${1:-}" != "--no-sanitize" ]; then
  "$here/scripts/build.sh" "$here/build-sanitize" -DPELKAM_WERROR=ON -DPELKAM_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug
  export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:halt_on_error=1"
  export LSAN_OPTIONS="suppressions=$here/tests/lsan.supp"
  export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
  (cd "$here/build-sanitize" && ctest --output-on-failure)
fi
