#!/usr/bin/env bash
# Seed corpora of the fuzz targets from the test files (and the shared real
# structure files when present): seed_corpora.sh OUT_DIR [SHARED_DATA_DIR]
set -eu
out=$1
shared=${2:-}
here=$(cd "$(dirname "$0")/.." && pwd)
data=$here/tests/data
rm -rf "$out"
mkdir -p "$out"/{kelta_inp,cif,mol,symmetry,track_line,neighbors,couplings,gemmi_cif}
n=0
copy() {  # copy FILE... into the corpus directory $dir, numbering them
  for f in "$@"; do [ -f "$f" ] && cp "$f" "$dir/$((n++))"; done
  return 0
}
dir=$out/kelta_inp; copy "$data"/keywords/*.inp "$data"/cases/*/in/kelta.inp
dir=$out/cif;       copy "$data"/cif/*.cif "$data"/cases/*/in/*.cif
dir=$out/mol;       copy "$data"/mol/*.mol "$data"/cases/*/in/*.mol
dir=$out/couplings; copy "$data"/cases/kmc_*/in/kelta-*.dat
dir=$out/gemmi_cif; copy "$data"/crystal/*.cif "$data"/cif/*.cif
if [ -n "$shared" ] && [ -d "$shared" ]; then
  dir=$out/cif; copy "$shared"/cif/*.cif
  dir=$out/mol; copy "$shared"/mol/*.mol
  dir=$out/gemmi_cif; copy "$shared"/cif/*.cif
fi
printf 'x,y,z\n-x,y+1/2,-z+1/2\n-x,-y,-z\nx,-y+1/2,z+1/2\n' > "$out/symmetry/p21c"
printf '1 0 0 0.5 0 1 0 0 0 0 1 0\ny-x,-x,z+2/3\n+X,-Y,1/4+Z\n' > "$out/symmetry/forms"
i=0
for f in "$data"/cases/mol_oblique_scans/in/track/track_0001.dat "$data"/cases/track_not_finite/in/track/track_0003.dat; do
  while IFS= read -r line; do printf '%s\n' "$line" > "$out/track_line/$((i++))"; done < <(head -6 "$f")
done
head -c 64 /dev/zero | tr '\0' '\101' > "$out/neighbors/a"
printf '\x10\x80\xf0\x40\x40\x40\x80\x01\x02\x03\x03\x02\x10\x20\x30\x40\x50\x60' > "$out/neighbors/b"
