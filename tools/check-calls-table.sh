#!/usr/bin/env bash
# Fails when the table of platform calls in docs/performance.md is not what the program prints:
#
#   tools/check-calls-table.sh build/native/bin/bench/platform_calls
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
diff <(sed -n '/^| calls | 1 volume /,/^$/p' docs/performance.md | sed '/^$/d') <("$1") ||
  { echo "docs/performance.md: the table of platform calls is another one; $1 prints it" && exit 1; }
