#!/usr/bin/env bash
# Runs check.mjs with these arguments where there is a Node.js that can; exit status 77 and the reason elsewhere.
set -euo pipefail
if ! command -v node >/dev/null; then
  echo "skipped: there is no node (tools/setup.sh browser installs it)"
  exit 77
fi
exec node "$(dirname "${BASH_SOURCE[0]}")/check.mjs" "$@"
