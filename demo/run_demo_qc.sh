#!/usr/bin/env bash
# The whole chain on the demo's naphthalene-like crystal with no number typed in
# between: the crystal, its classes of pairs and their geometries (kelta_kmc
# -pairs), every coupling and the reorganisation energy from psi4 (kelta_qc), the
# hopping simulation of a hole (kelta_kmc) and the mobility tensor (kelta_mob
# -tensor); then each class's coupling with its distance, lambda and the
# principal mobilities, and the time of each step.
# Couplings at B3LYP/3-21G (within 2% of B3LYP/6-31G* for the herringbone pair, where
# STO-3G gives 4% of it), lambda at B3LYP/STO-3G (the default of qc_basis_re),
# two threads: about twenty minutes on two cores.
# Interrupted and run again, it keeps OUTPUT_DIR and redoes nothing finished.
# Usage: demo/run_demo_qc.sh BUILD_DIR OUTPUT_DIR [TRAJECTORIES]
set -euo pipefail
build=$(cd "$1" && pwd)
out=$2
nsimu=${3:-2000}
command -v psi4 > /dev/null || { echo "psi4 is not installed (Debian: apt-get install psi4): the demo needs it"; exit 1; }
mkdir -p "$out"
cd "$out"

now() { date +%s.%N; }
elapsed() { awk -v a="$1" -v b="$(now)" 'BEGIN { printf "%.1f", b - a }'; }
timings=""

echo "== 1. the crystal: naphthalene_like.cif (P2_1/a, two C10H8 molecules per cell), kelta.inp, charge.inp (a hole)"
cat > naphthalene_like.cif <<'CIF'
data_naphthalene_like
_chemical_name_common 'naphthalene-like demonstration cell'
_space_group_IT_number 14
_symmetry_space_group_name_H-M 'P 1 21/a 1'
_cell_length_a 8.098
_cell_length_b 5.953
_cell_length_c 8.652
_cell_angle_alpha 90
_cell_angle_beta 124.4
_cell_angle_gamma 90
loop_
_symmetry_equiv_pos_site_id
_symmetry_equiv_pos_as_xyz
1 x,y,z
2 1/2-x,1/2+y,-z
3 -x,-y,-z
4 1/2+x,1/2-y,z

loop_
_atom_site_label
_atom_site_type_symbol
_atom_site_fract_x
_atom_site_fract_y
_atom_site_fract_z
C1  C  0.04159 -0.10703  0.03151
C2  C  0.10161 -0.17925  0.21006
C3  C -0.06475  0.24888  0.08400
C4  C  0.07845 -0.03740  0.32557
C5  C -0.00473  0.17667  0.26254
H1  H  0.16578 -0.34439  0.25868
H2  H -0.12893  0.41402  0.03538
H3  H  0.12477 -0.09308  0.46343
H4  H -0.02259  0.28612  0.35178

CIF
cat > kelta.inp <<EOF
&transport
  crystal        = naphthalene_like.cif
  ratetype       = marcus
  nsimu          = $nsimu
  tsimu          = 1000.0    ! ps: both programs run with -timeunit PS
  tsnap          = 5.0
  temp           = 300.0
  seed           = 2026
  output_level   = 0
  compute_engine = 4         ! psi4
  qc_basis       = b3lyp 3-21g
  qc_basis_re    = b3lyp STO-3g
  qc_memory      = 1000
  qc_ppn         = 2
/
EOF
echo h > charge.inp

echo "== 2. the pairs and their geometries: kelta_kmc -pairs"
start=$(now)
if [ -f kelta-marcus.dat ]; then
  echo "  kelta-marcus.dat is there from an earlier run: kept"
else
  "$build/kelta_kmc" -pairs | sed 's/^/  /'
fi
[ -f dimers/class_001.xyz ] || { echo "  kelta_kmc -pairs wrote no dimers/: this kelta_kmc cannot feed kelta_qc"; exit 1; }
echo "  dimers/: $(ls dimers | tr '\n' ' ')"
timings+="  kelta_kmc -pairs      $(elapsed "$start") s"$'\n'

echo "== 3. quantum chemistry: kelta_qc (psi4; a finished calculation is not run again)"
start=$(now)
"$build/kelta_qc" | tee kelta_qc.log | sed 's/^/  /'
timings+="  kelta_qc              $(elapsed "$start") s ($(grep -c '^  \[' kelta_qc.log) calculations, $(grep -c ': finished before$' kelta_qc.log || true) of them finished before)"$'\n'
grep -v '^#' kelta-marcus.dat | sed 's/^/  /'

echo "== 4. the hopping simulation: kelta_kmc -timeunit PS"
start=$(now)
"$build/kelta_kmc" -timeunit PS > kelta_kmc.log
sed 's/^/  /' kelta_kmc.log
timings+="  kelta_kmc             $(elapsed "$start") s"$'\n'

echo "== 5. the mobility tensor: kelta_mob -timeunit PS -tensor"
start=$(now)
"$build/kelta_mob" -timeunit PS -tensor > kelta_mob.log
grep -E '^\*\*\*' kelta_mob.log | sed 's/^/  /'
timings+="  kelta_mob -tensor     $(elapsed "$start") s"$'\n'

echo "== 6. what came out, in $out"
echo "  couplings from psi4 (kelta_qc.log):"
grep -E '^  class ' kelta_qc.log | sed 's/^  /    /'
grep -E '^  lambda of ' kelta_qc.log | sed 's/^  /    /'
echo "  principal mobilities in cm^2/(V s), measured (kelta_mob -tensor) against exact (kelta_kmc, kmc_exact.dat):"
for k in 1 2 3; do
  measured=$(awk -v k="principal_$k" '$1 == k { n++; if (n == 2) print $2, $3 }' mob_tensor.dat)
  exact=$(awk -v k="principal_$k" '$1 == k { print $2 }' kmc_exact.dat)
  echo "$measured $exact" | awk -v k="$k" '{ printf "    principal_%d  measured %.4g +- %.2g   exact %.4g\n", k, $1, $2, $3 }'
done
echo "  time of each step (wall clock, on a machine that may be shared):"
printf '%s' "$timings"
