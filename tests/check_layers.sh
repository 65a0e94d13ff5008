#!/usr/bin/env bash
# The include graph of src/ against the layers of the build: a folder's sources
# include only headers of their own folder and of the folders below it. Prints
# the figures (files, folders, includes between folders) and every include that
# goes up a layer or sideways between the two programs; such an include fails.
set -euo pipefail
cd "$(dirname "$0")/../src"
declare -A below=(
  [util]=""
  [crystal]="util"
  [input]="crystal util"
  [model]="input crystal util"
  [tracks]="util"
  [analysis]="model input crystal util"
  [hopping]="model input crystal util tracks"
  [qc]="model input crystal util"
)
declare -A home
for h in */*.h; do home[${h#*/}]=${h%%/*}; done
files=0 between=0 bad=0
for f in */*.h */*.cpp; do
  files=$((files + 1))
  dir=${f%%/*}
  [ -n "${below[$dir]+set}" ] || { echo "layers: $dir/ is no known layer (add it to tests/check_layers.sh)"; bad=$((bad + 1)); continue; }
  while read -r inc; do
    to=${home[$inc]:-}
    [ -n "$to" ] && [ "$to" != "$dir" ] || continue
    between=$((between + 1))
    if [[ " ${below[$dir]} " != *" $to "* ]]; then
      echo "layers: $f includes $to/$inc, which is not below $dir/"
      bad=$((bad + 1))
    fi
  done < <(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([^"]*\)".*/\1/p' "$f")
done
echo "layers: $files files in ${#below[@]} folders, $between includes between folders, $bad against the layers"
[ "$bad" = 0 ]
