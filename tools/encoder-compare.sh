#!/usr/bin/env bash
# The MPEG-4 encoder against the ones users have: kplvc's, ffmpeg's mpeg4
# (plain, and with -mbd rd -flags +mv4) and xvid (through ffmpeg), on clips
# of ffmpeg's built-in sources at the same bit rates, one thread each.
#
#   tools/encoder-compare.sh KPLVC WORKDIR [FRAMES] [PLOT.png]
#
# For every clip, rate and encoder it prints a Markdown row: achieved bit
# rate, luma PSNR against the source (mean over frames of each frame's
# PSNR, from ffmpeg's decode of the stream) and encoding speed (frames per
# second of CPU time, user + system, of the whole encoding process: reading
# the raw input included for every encoder). The peers miss their targets
# by different amounts, so a second table codes the clip with kplvc (four
# vectors) again at each peer's achieved bit rate: the comparison at equal
# bit rate. With gnuplot installed and PLOT given, PSNR against bit rate
# goes to a PNG, one panel per clip.
set -eu
kplvc=$1 work=$2 frames=${3:-150} plot=${4:-}
mkdir -p "$work"

# name | lavfi source | size | rates (kbit/s)
clips=(
  "cif-testsrc2|testsrc2=size=352x288:rate=25|352x288|300 700 1500"
  "cif-mandelbrot|mandelbrot=size=352x288:rate=25|352x288|300 700 1500"
  "sd-testsrc2|testsrc2=size=720x576:rate=25|720x576|1500 3000 6000"
  "sd-mandelbrot|mandelbrot=size=720x576:rate=25|720x576|1500 3000 6000"
)
encoders=(kplvc kplvc-4mv ffmpeg ffmpeg-rd-mv4 xvid)

# CPU seconds (user + system) of a command, its output discarded.
cpu_time() {
  /usr/bin/time -o "$work/time.txt" -f "%U %S" "$@" >/dev/null 2>&1 || return 1
  awk '{ print $1 + $2 }' "$work/time.txt"
}

mean_luma_psnr() {  # decoded source size
  "$kplvc" compare "$1" "$2" --size "$3" |
    awk '$1 == "frame" { s += $4; n++ } END { if (n) printf "%.2f", s / n; else print "nan" }'
}

# Runs an encoder command, prints its row and appends it to the data file.
measure() {
  local name=$1 enc=$2 size=$3 src=$4 out=$5 rate=$6
  shift 6
  local secs n kbps psnr fps
  secs=$(cpu_time "$@") || { echo "| $name | $rate | $enc | failed | | |"; return; }
  ffmpeg -nostdin -v error -y -threads 1 -i "$out" -f rawvideo -pix_fmt yuv420p "$work/dec.yuv"
  n=$(($(stat -c %s "$work/dec.yuv") / ($(stat -c %s "$src") / frames)))
  kbps=$(awk -v b="$(stat -c %s "$out")" -v n="$n" 'BEGIN { printf "%.1f", b * 8 * 25 / n / 1000 }')
  psnr=$(mean_luma_psnr "$work/dec.yuv" "$src" "$size")
  fps=$(awk -v n="$frames" -v s="$secs" 'BEGIN { printf "%.0f", (s > 0 ? n / s : 0) }')
  echo "| $name | $rate | $enc | $kbps | $psnr | $fps |"
  echo "$name $enc $kbps $psnr $fps" >>"$data"
}

data=$work/results.dat
: >"$data"
echo "| clip | target kbit/s | encoder | kbit/s | luma PSNR dB | encoding fps |"
echo "|---|---:|---|---:|---:|---:|"
for clip in "${clips[@]}"; do
  IFS='|' read -r name source size rates <<<"$clip"
  src=$work/$name.yuv
  [ -s "$src" ] || ffmpeg -nostdin -v error -y -f lavfi -i "$source" -frames:v "$frames" -pix_fmt yuv420p \
    -f rawvideo "$src"
  raw=(-f rawvideo -pix_fmt yuv420p -s "$size" -r 25 -i "$src")
  for rate in $rates; do
    for enc in "${encoders[@]}"; do
      out=$work/$name-$rate-$enc.m4v
      case $enc in
        kplvc) cmd=("$kplvc" encode "$src" --size "$size" --bitrate "${rate}k" -o "$out") ;;
        kplvc-4mv) cmd=("$kplvc" encode "$src" --size "$size" --bitrate "${rate}k" --4mv -o "$out") ;;
        ffmpeg) cmd=(ffmpeg -nostdin -v error -y -threads 1 "${raw[@]}" -c:v mpeg4 -b:v "${rate}k" -threads 1 "$out") ;;
        ffmpeg-rd-mv4) cmd=(ffmpeg -nostdin -v error -y -threads 1 "${raw[@]}" -c:v mpeg4 -b:v "${rate}k" -mbd rd \
          -flags +mv4 -threads 1 "$out") ;;
        xvid) cmd=(ffmpeg -nostdin -v error -y -threads 1 "${raw[@]}" -c:v libxvid -b:v "${rate}k" -threads 1 "$out") ;;
      esac
      measure "$name" "$enc" "$size" "$src" "$out" "$rate" "${cmd[@]}"
    done
  done
done

# Equal bit rates: kplvc (four vectors) at each peer's achieved rate.
echo
echo "| clip | peer | peer kbit/s | peer PSNR | kplvc kbit/s | kplvc PSNR | kplvc - peer dB |"
echo "|---|---|---:|---:|---:|---:|---:|"
equal=$work/equal.dat
: >"$equal"
for clip in "${clips[@]}"; do
  IFS='|' read -r name source size rates <<<"$clip"
  src=$work/$name.yuv
  grep -E "^$name (ffmpeg|ffmpeg-rd-mv4|xvid) " "$data" | while read -r _ peer kbps psnr _; do
    out=$work/$name-eq-$peer-$kbps.m4v
    "$kplvc" encode "$src" --size "$size" --bitrate "${kbps}k" --4mv -o "$out" >/dev/null
    ffmpeg -nostdin -v error -y -threads 1 -i "$out" -f rawvideo -pix_fmt yuv420p "$work/dec.yuv"
    k=$(awk -v b="$(stat -c %s "$out")" -v n="$frames" 'BEGIN { printf "%.1f", b * 8 * 25 / n / 1000 }')
    p=$(mean_luma_psnr "$work/dec.yuv" "$src" "$size")
    d=$(awk -v a="$p" -v b="$psnr" 'BEGIN { printf "%+.2f", a - b }')
    echo "| $name | $peer | $kbps | $psnr | $k | $p | $d |"
    echo "$name $peer $d" >>"$equal"
  done
done

if [ -n "$plot" ] && command -v gnuplot >/dev/null 2>&1; then
  {
    echo "set terminal pngcairo size 1200,900 font ',10'"
    echo "set output '$plot'"
    echo "set multiplot layout 2,2"
    echo "set key bottom right"
    echo "set xlabel 'kbit/s'; set ylabel 'luma PSNR (dB)'; set grid"
    for clip in "${clips[@]}"; do
      name=${clip%%|*}
      echo "set title '$name'"
      line="plot"
      for enc in "${encoders[@]}"; do
        line="$line '< grep \"^$name $enc \" $data' using 3:4 with linespoints title '$enc',"
      done
      echo "${line%,}"
    done
    echo "unset multiplot"
  } | gnuplot
fi
