#!/usr/bin/env bash
# Installs what the build needs from Debian's packages, if it is missing.
set -euo pipefail
packages=(g++ cmake ninja-build libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev libembree-dev nlohmann-json3-dev libboost-dev
  pybind11-dev python3-dev python3-numpy python3-pytest python3-matplotlib)
if [[ "${TORVA_EXTRA_PACKAGES:-}" != "" ]]; then
  read -r -a extra <<<"$TORVA_EXTRA_PACKAGES"
  packages+=("${extra[@]}")
fi
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  sudo_cmd=()
  [[ $(id -u) -ne 0 ]] && sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq "${missing[@]}" >/dev/null
fi
