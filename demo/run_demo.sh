#!/usr/bin/env bash
# The demo, from a crystal to a mobility: a naphthalene-like crystal, its
# classes of molecule pairs (kelta_kmc -pairs), couplings filled in from the
# table below, the hopping simulation of a hole (kelta_kmc), every analysis of
# kelta_mob and, when gnuplot is installed, the pictures; the mobility against
# temperature and field from the master equation with two rate models; then the
# measured principal mobilities beside the exact ones of the network.
# Usage: demo/run_demo.sh BUILD_DIR OUTPUT_DIR [TRAJECTORIES]
set -euo pipefail
build=$(cd "$1" && pwd)
out=$2
nsimu=${3:-2000}
rm -rf "$out"
mkdir -p "$out"
cd "$out"

echo "== 1. the crystal: naphthalene_like.cif (P2_1/a, two molecules per cell)"
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
  crystal      = naphthalene_like.cif
  ratetype     = marcus
  nsimu        = $nsimu
  tsimu        = 1000.0    ! ps: both programs run with -timeunit PS
  tsnap        = 5.0
  temp         = 300.0
  seed         = 2026
  output_level = 6         ! 2: the angle scans, 4: the averaged tracks
/
EOF
echo h > charge.inp

echo "== 2. the pairs: kelta_kmc -pairs writes kelta-marcus.dat, one coupling per class"
"$build/kelta_kmc" -pairs | sed 's/^/  /'

# The couplings of a hole, meV, as quantum chemistry gives them for an acene
# herringbone layer: lambda of the molecule, and V of each class by the distance
# of its two centres (column 7 of a class line).
awk '
  /^lambda_meV = NA$/ { print "lambda_meV = 180"; next }
  !/^#/ && NF == 11 && $11 == "NA" {
    d = $7
    v = d < 5.5 ? 40 : d < 6.5 ? 35 : d < 8.0 ? 5 : d < 9.0 ? 2 : 0.5
    sub(/NA$/, v); print; next }
  { print }' kelta-marcus.dat > couplings.new && mv couplings.new kelta-marcus.dat
grep -v '^#' kelta-marcus.dat | sed 's/^/  /'

echo "== 3. the hopping simulation: kelta_kmc -timeunit PS"
"$build/kelta_kmc" -timeunit PS > kelta_kmc.log
sed 's/^/  /' kelta_kmc.log

echo "== 4. kelta_mob -timeunit PS -binfo -tensor -json"
"$build/kelta_mob" -timeunit PS -binfo -tensor -json > kelta_mob.log
grep -E '^(\*\*\*|Treating|Reading)' kelta_mob.log

echo "== 5. the pictures"
if command -v gnuplot > /dev/null; then
  for s in mob_plane_xy mob_plane_xz mob_plane_yz mob_direction_all mob_msd; do
    gnuplot "$s.gnu-png"
    echo "  $s.png"
  done
else
  echo "  gnuplot is not installed: run 'gnuplot NAME.gnu-png' (or 'python3 NAME.py') later"
fi

echo "== 6. mobility against temperature and field from the master equation: Marcus and one-mode quantum rates"
# The same crystal and couplings, 150 to 300 K, and the drift along a from 1e4 to 1e9 V/m at 300 K:
# Marcus rates with lambda = 180 meV, and Marcus-Levich-Jortner rates with the same 180 meV split into
# a classical 30 meV and a mode of 180 meV with S = 150/180 (S hw = 150 meV). No track file.
for model in marcus quantum; do
  mkdir -p "me_$model"
  cp naphthalene_like.cif charge.inp "me_$model/"
  if [ "$model" = marcus ]; then
    cp kelta-marcus.dat me_marcus/
  else
    sed 's/^lambda_meV = 180$/lambda_meV = 30/' kelta-marcus.dat > me_quantum/kelta-quantum.dat
    printf 'hw_meV = 180\nhuang_rhys = 0.833333\n' >> me_quantum/kelta-quantum.dat
  fi
  cat > "me_$model/kelta.inp" <<EOF
&transport
  crystal      = naphthalene_like.cif
  ratetype     = $model
  temp         = 300.0
  do_transport_run_MC      = 0     ! no simulation: the master equation alone
  do_transport_run_ME      = 1     ! at temp, with the drift against field_range
  do_transport_run_ME_temp = 1     ! at start_temp, start_temp + delta_temp, ... end_temp
  start_temp   = 150
  end_temp     = 300
  delta_temp   = 10
  app_elec_F   = 1 0 0             ! the direction of field_range: along a (1 V/m, negligible)
  field_range  = 1e4 1e9 26        ! V/m, 5 per decade
/
EOF
  (cd "me_$model" && "$build/kelta_kmc" -timeunit PS > kelta_kmc.log)
  echo "  ratetype $model (me_$model/me_temp.dat, me_$model/me_field.dat):"
  grep -E 'mu ~ T|zero-field' "me_$model/kelta_kmc.log" | sed 's/^ */    /'
  if command -v gnuplot > /dev/null; then
    (cd "me_$model" && gnuplot me_temp.gnu-png && gnuplot me_field.gnu-png)
    echo "    me_$model/me_temp.png, me_$model/me_field.png"
  fi
done

echo "== 7. what came out, in cm^2/(V s), in $out"
cat mob.dat mob_a.dat mob_b.dat mob_c.dat | sed 's/^/  /'
grep -E '^(anisotropy|average|convergence)|verdict' mob_tensor.dat | sed 's/^/  /'
echo "  principal mobilities, measured (kelta_mob -tensor) against exact (kelta_kmc, kmc_exact.dat):"
for k in 1 2 3; do
  measured=$(awk -v k="principal_$k" '$1 == k { n++; if (n == 2) print $2, $3 }' mob_tensor.dat)
  exact=$(awk -v k="principal_$k" '$1 == k { print $2 }' kmc_exact.dat)
  echo "$measured $exact" | awk -v k="$k" '{ printf "    principal_%d  measured %.4f +- %.4f   exact %.4f   (%+.1f standard errors)\n", k, $1, $2, $3, ($1 - $3) / $2 }'
done
cat <<'TXT'
  mob.dat: the mobility averaged over all directions, with half the spread of 100 resamples;
  mob_a/b/c.dat: along the cell vectors; mob_plane_*.dat: angle, mobility, error in the xy, xz
  and yz planes; mob_direction_all.dat: polar angle, azimuth, mobility, error over the sphere;
  mob_tensor.dat: the tensor behind all of them, its principal values and their statistics;
  mob_msd.dat (mob_msd.png): the mean-square displacement, its bands, fits and local exponent;
  mob_summary.json: every input and result of the run, for scripts;
  kmc_exact.dat: the exact answer of the hopping network; kmc_rates.dat: every hop and its rate;
  me_marcus/, me_quantum/: mobility against temperature (me_temp.dat) and drift against field
  (me_field.dat) from the master equation, with Marcus and with one-mode quantum rates.
TXT
