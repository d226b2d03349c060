#!/usr/bin/env bash
# Frames tracked and trajectory error of `pavo track` on every shared real sequence at its own and
# at reduced rates, and on synthesized rooms and objects held by a quick hand, as a user would run
# them: pavo import (or pavo synth), pavo track, pavo eval traj.
#   bash bench/tracking/tracking_table.sh [WORK_DIR] [PAVO]
# WORK_DIR keeps the recordings between runs (default /tmp/mapura_tracking_table); PAVO defaults to
# build/sdk/tools/pavo/pavo. MAPURA_SHARED_DATA points at the shared data (default ../shared/data).
# Synthesized recordings take minutes to render the first time; MAPURA_TABLE=real or synth runs
# only that half.
set -uo pipefail
cd "$(dirname "$0")/../.."
work=${1:-/tmp/mapura_tracking_table}
pavo=${2:-build/sdk/tools/pavo/pavo}
data=${MAPURA_SHARED_DATA:-../shared/data}
mkdir -p "$work"
uname -n | sed 's/^/machine: /'
grep -m1 "model name" /proc/cpuinfo | sed 's/.*: /cpu: /'
echo "load: $(cut -d' ' -f1-3 /proc/loadavg)"
printf "%-34s %7s %9s %5s %9s %8s %8s\n" sequence rate tracked gap ate_m ate_pct ms/grab

# One row: recording NAME.ktr with NAME.gt.txt in $work.
row() {
  local name=$1 label=$2 rate=$3
  local ktr="$work/$name.ktr" traj="$work/$name.traj.txt"
  local log
  log=$("$pavo" track "$ktr" -o "$traj" 2>&1 >/dev/null | tr '\r' '\n' | grep "frames,.*tracked")
  local frames tracked ms
  frames=$(sed -E 's/.*: ([0-9]+) frames.*/\1/' <<<"$log")
  tracked=$(sed -E 's/.* ([0-9]+) tracked.*/\1/' <<<"$log")
  ms=$(sed -E 's/.*, ([0-9.]+) ms per grab.*/\1/' <<<"$log")
  local eval ate ate_pct
  eval=$("$pavo" eval traj "$traj" "$work/$name.gt.txt" 2>&1)
  ate=$(awk '/^ate_rmse_m/ {print $2}' <<<"$eval")
  ate_pct=$(awk '/^ate_pct/ {print $2}' <<<"$eval")
  # Longest run of ground-truth frames without an estimate.
  local gap
  gap=$(awk 'FNR == NR { if ($1 !~ /^#/) have[sprintf("%.3f", $1)] = 1; next }
             $1 !~ /^#/ { if (have[sprintf("%.3f", $1)]) run = 0; else if (++run > worst) worst = run }
             END { print worst + 0 }' "$traj" "$work/$name.gt.txt")
  printf "%-34s %7s %9s %5s %9s %8s %8s\n" "$label" "$rate" "${tracked:-?}/${frames:-?}" "$gap" "${ate:-?}" \
    "${ate_pct:-?}" "${ms:-?}"
}

imported() {
  local name=$1 dir=$2 format=$3 every=$4 label=$5 rate=$6
  [ -f "$work/$name.ktr" ] || "$pavo" import "$dir" -o "$work/$name.ktr" --format "$format" --every "$every" \
    >/dev/null || return
  row "$name" "$label" "$rate"
}

synthesized() {
  local name=$1 scene=$2 motion=$3 resolution=$4 seed=$5 frames=$6
  [ -f "$work/$name.ktr" ] || "$pavo" synth "$scene" -o "$work/$name.ktr" --motion "$motion" \
    --resolution "$resolution" --seed "$seed" --frames "$frames" >/dev/null 2>&1 || return
  row "$name" "$scene $motion $resolution seed $seed" "30 Hz"
}

part=${MAPURA_TABLE:-all}
mh=$data/euroc_mh01_shake_10hz
kitti=$data/kitti_odometry_stereo_excerpt/KITTI_sequence_1
if [ "$part" != synth ]; then
imported mh01_10hz "$mh" euroc 1 "euroc_mh01_shake_10hz" "10 Hz"
imported mh01_5hz "$mh" euroc 2 "euroc_mh01_shake_10hz" "5 Hz"
imported mh01_3hz "$mh" euroc 3 "euroc_mh01_shake_10hz" "3.3 Hz"
imported v101_20hz "$data/euroc_v1_01_micro" euroc 1 "euroc_v1_01_micro (static)" "20 Hz"
imported kitti_10hz "$kitti" kitti 1 "kitti_odometry_stereo_excerpt" "10 Hz"
imported kitti_5hz "$kitti" kitti 2 "kitti_odometry_stereo_excerpt" "5 Hz"
imported kitti_3hz "$kitti" kitti 3 "kitti_odometry_stereo_excerpt" "3.3 Hz"
fi
[ "$part" = real ] && exit 0
for scene in room object; do
  for seed in 1 2 3; do synthesized "${scene}_hh_vga_s$seed" "$scene" handheld VGA "$seed" 150; done
done
synthesized room_hh_hd_s1 room handheld HD720 1 150
synthesized room_smooth_hd_s1 room smooth HD720 1 300
