#!/usr/bin/env bash
# The tests' size against the code they test: lines of tests/ as a share of src/, include/,
# tools/ and bench/ together. New exports arrive as rows of their family's table, so the share
# should only fall as the library grows; CI fails when it rises above the limit given (percent),
# and the limit is lowered as the share comes down, toward this project's quarter to third.
#   scripts/test-share.sh [LIMIT]   (default 40)
set -euo pipefail
cd "$(dirname "$0")/.."
limit=${1:-40}

lines() {  # the tracked files under the given folders (every file where this is not a checkout)
  if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
    git ls-files -z -- "$@" | xargs -0 cat | wc -l
  else
    find "$@" -type f -print0 | xargs -0 cat | wc -l
  fi
}

tests=$(lines tests)
rest=$(lines src include tools bench)
tenths=$(( (1000 * tests + rest / 2) / rest ))
echo "tests/: $tests lines against $rest in src, include, tools and bench: $((tenths / 10)).$((tenths % 10)) % (limit $limit %)"
if (( tenths > 10 * limit )); then
  echo "the tests have grown faster than the code they test: fold new cases into the family's table" >&2
  exit 1
fi
