#!/usr/bin/env bash
# Runs the commands of docs/integration.md: its blocks of shell, in their order.
set -euo pipefail
cd "$(dirname "$0")/../.."
out=build/integration-$$
trap 'rm -rf "$out"' EXIT
export out
# shellcheck disable=SC2016  # no variable: a pattern
sed -n '/^```sh$/,/^```$/{/^```/d;p}' docs/integration.md | bash -euxo pipefail
