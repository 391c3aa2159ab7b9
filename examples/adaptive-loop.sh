#!/usr/bin/env bash
# The adaptive loop on the plate with a hole (examples/hole-plate) through `slabadapt adapt`:
# plane-stress triangles, each cycle's CalculiX deck with the exact (Kirsch) tractions written by
# hole-plate/write_deck.py, until the global error is below the target.
# Usage: examples/adaptive-loop.sh [WORKDIR]
#   SLABADAPT   the slabadapt command (default: slabadapt on PATH, else build/release/cli/slabadapt)
#   TARGET      required relative error as a fraction (default 0.05)
#   H0          size of the first, uniform mesh (default 1.0)
#   MAX_CYCLES  (default 10)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
repo=$(dirname "$here")
work=${1:-$(mktemp -d)}
python=${PYTHON:-/usr/bin/python3}
slabadapt=${SLABADAPT:-$(command -v slabadapt || echo "$repo/build/release/cli/slabadapt")}
export PYTHONDONTWRITEBYTECODE=1
mkdir -p "$work"
cp "$here/hole-plate/plate.geo" "$here/hole-plate/plate.toml" "$work"/
cd "$work"
exec "$slabadapt" adapt plate --target "${TARGET:-0.05}" --load-case 1 --h0 "${H0:-1.0}" \
    --max-cycles "${MAX_CYCLES:-10}" --plane-stress --triangles --fresh \
    --deck-command "$python $here/hole-plate/write_deck.py \"\$SLABADAPT_P\""
