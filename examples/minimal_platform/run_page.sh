#!/usr/bin/env bash
# Runs the shell commands of docs/integration.md in their order.
set -euo pipefail
cd "$(dirname "$0")/../.."
out=build/integration-$$
trap 'rm -rf "$out"' EXIT
export out
# shellcheck disable=SC2016  # a pattern, not a variable
sed -n '/^```sh$/,/^```$/{/^```/d;p}' docs/integration.md | bash -euxo pipefail
