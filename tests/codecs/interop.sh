#!/usr/bin/env bash
# Codec interop against ffmpeg: for every case of a table, ffmpeg makes a
# stream from one of its built-in sources, then `kplvc decode` and ffmpeg
# each decode it, and `kplvc compare` judges every frame.
#
#   interop.sh KPLVC CASES WORKDIR [full|quick]
#
# A table has one case per line, fields separated by '|':
#   tags | name | source | frames | encode | ext | reference decode | kplvc decode | bound
#   tags              comma list; in quick mode only cases tagged "quick" run
#   source            an ffmpeg lavfi graph (testsrc2=size=352x288:rate=25)
#   encode            ffmpeg output options that make the stream (-c:v ... )
#   ext               the stream file's extension
#   reference decode  ffmpeg input options for the reference decode (-idct int), or -
#   kplvc decode      extra `kplvc decode` options, or -
#   bound             "exact" (no sample may differ) or the lowest PSNR in dB
#                     allowed on any plane of any frame
# Exit status: 0 all passed, 1 a case failed, 77 ffmpeg is missing (skipped).
set -u
kplvc=$1 cases=$2 work=$3 mode=${4:-full}
if ! command -v ffmpeg >/dev/null 2>&1; then
  echo "SKIPPED: ffmpeg is not installed (Debian package ffmpeg); no interop case ran"
  exit 77
fi
mkdir -p "$work"
trim() { local s=$1; s=${s#"${s%%[![:space:]]*}"}; s=${s%"${s##*[![:space:]]}"}; printf '%s' "$s"; }

failed=0 ran=0
while IFS='|' read -r tags name source frames encode ext refdec ourdec bound; do
  tags=$(trim "$tags")
  [ -z "$tags" ] || [ "${tags#\#}" != "$tags" ] && continue
  if [ "$mode" = quick ] && [[ ",$tags," != *",quick,"* ]]; then continue; fi
  name=$(trim "$name") source=$(trim "$source") frames=$(trim "$frames") encode=$(trim "$encode")
  ext=$(trim "$ext") refdec=$(trim "$refdec") ourdec=$(trim "$ourdec") bound=$(trim "$bound")
  [ "$refdec" = - ] && refdec=
  [ "$ourdec" = - ] && ourdec=
  stream=$work/$name.$ext ran=$((ran + 1))
  # shellcheck disable=SC2086
  if ! ffmpeg -nostdin -v error -y -f lavfi -i "$source" -frames:v "$frames" $encode "$stream"; then
    echo "FAIL $name: ffmpeg could not make the stream"; failed=$((failed + 1)); continue
  fi
  # shellcheck disable=SC2086
  summary=$("$kplvc" decode "$stream" -o "$work/$name.ours.yuv" $ourdec | tail -n 1)
  read -r _ _ size pixfmt _ <<<"$summary"
  if [[ ! "$summary" =~ ^decoded ]]; then
    echo "FAIL $name: kplvc decode failed"; failed=$((failed + 1)); continue
  fi
  # shellcheck disable=SC2086
  if ! ffmpeg -nostdin -v error -y -threads 1 $refdec -i "$stream" -fps_mode passthrough \
      -f rawvideo -pix_fmt "$pixfmt" "$work/$name.ref.yuv"; then
    echo "FAIL $name: ffmpeg could not decode the stream"; failed=$((failed + 1)); continue
  fi
  if [ "$bound" = exact ]; then judge=(--exact); else judge=(--min-psnr "$bound"); fi
  result=$("$kplvc" compare "$work/$name.ours.yuv" "$work/$name.ref.yuv" --size "$size" \
           --pix-fmt "$pixfmt" "${judge[@]}" --quiet)
  status=$?
  printf '%-4s %-28s %s %s: %s\n' "$([ $status = 0 ] && echo ok || echo FAIL)" "$name" "$size" \
    "$pixfmt" "$(tail -n 1 <<<"$result")"
  if [ $status != 0 ]; then
    head -n 20 <<<"$result"; failed=$((failed + 1))
  else
    rm -f "$work/$name.ours.yuv" "$work/$name.ref.yuv"
  fi
done <"$cases"
echo "$ran cases, $failed failed"
[ "$ran" -gt 0 ] && [ "$failed" = 0 ]
