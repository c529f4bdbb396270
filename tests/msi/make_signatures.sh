#!/usr/bin/env bash
# Extracts the signatures of the fixtures' packages with osslsigncode into signatures/, for msi_package_test.cpp to compare
# with. Run it after the packages were made anew.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
rm -rf signatures
mkdir signatures
for package in ../fixtures/packages/*.msi; do
  out=signatures/$(basename "$package" .msi).p7
  osslsigncode extract-signature -in "$package" -out "$out" >/dev/null 2>&1 || rm -f "$out"
done
