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
#   encode            ffmpeg output options that make the stream (-c:v ... ), or
#                     "kplvc: OPTIONS": `kplvc encode OPTIONS` makes it from the
#                     source, and ffmpeg's decode is judged against the encoder's
#                     reconstruction (our decoder must reproduce it exactly)
#   ext               the stream file's extension
#   reference decode  ffmpeg input options for the reference decode (-idct int), or -
#   kplvc decode      extra `kplvc decode` options, or -
#   bound             "exact" (no sample may differ) or the lowest PSNR in dB
#                     allowed on any plane of any frame; or "encoder:DB" where
#                     ffmpeg's own decoder is no reference (it disagrees with its
#                     encoder): the stream is made with -vstats_file (the row's
#                     -flags must hold +psnr) and the luma PSNR of our decode
#                     against the source may differ by at most DB from the PSNR
#                     the encoder reports for its own reconstruction, frame by
#                     frame
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
  if [[ "$encode" == kplvc:* ]]; then
    # Our encoder's stream: ffmpeg decodes it, the reconstruction is the reference.
    read -r size <<<"$(sed -n 's/.*--size \([0-9]*x[0-9]*\).*/\1/p' <<<"$encode")"
    if ! ffmpeg -nostdin -v error -y -f lavfi -i "$source" -frames:v "$frames" -f rawvideo -pix_fmt yuv420p \
        "$work/$name.src.yuv" ||
       ! "$kplvc" encode "$work/$name.src.yuv" -o "$stream" --recon "$work/$name.rec.yuv" ${encode#kplvc:} >/dev/null ||
       ! "$kplvc" decode "$stream" -o "$work/$name.ours.yuv" >/dev/null ||
       ! ffmpeg -nostdin -v error -y -threads 1 $refdec -i "$stream" -fps_mode passthrough -f rawvideo \
         -pix_fmt yuv420p "$work/$name.ref.yuv"; then
      echo "FAIL $name: encoding or decoding failed"; failed=$((failed + 1)); continue
    fi
    own=$("$kplvc" compare "$work/$name.ours.yuv" "$work/$name.rec.yuv" --size "$size" --exact --quiet)
    own_status=$?
    result=$("$kplvc" compare "$work/$name.ref.yuv" "$work/$name.rec.yuv" --size "$size" --min-psnr "$bound" --quiet)
    status=$?
    [ $own_status = 0 ] || { status=1; result="our decoder differs from our encoder: $(tail -n 1 <<<"$own")"; }
    printf '%-4s %-28s %s %s: %s\n' "$([ $status = 0 ] && echo ok || echo FAIL)" "$name" "$size" yuv420p \
      "$(tail -n 1 <<<"$result")"
    if [ $status != 0 ]; then failed=$((failed + 1)); else rm -f "$work/$name".*.yuv; fi
    continue
  fi
  vstats=()
  [[ "$bound" == encoder:* ]] && vstats=(-vstats_file "$work/$name.vstats")
  # shellcheck disable=SC2086
  if ! ffmpeg -nostdin -v error -y -f lavfi -i "$source" -frames:v "$frames" $encode "${vstats[@]}" "$stream"; then
    echo "FAIL $name: ffmpeg could not make the stream"; failed=$((failed + 1)); continue
  fi
  # shellcheck disable=SC2086
  summary=$("$kplvc" decode "$stream" -o "$work/$name.ours.yuv" $ourdec | tail -n 1)
  read -r _ _ size pixfmt _ <<<"$summary"
  if [[ ! "$summary" =~ ^decoded ]]; then
    echo "FAIL $name: kplvc decode failed"; failed=$((failed + 1)); continue
  fi
  if [[ "$bound" == encoder:* ]]; then
    # Our decode against the source, beside what the encoder says of its own
    # reconstruction.
    tol=${bound#encoder:}
    if ! ffmpeg -nostdin -v error -y -f lavfi -i "$source" -frames:v "$frames" -f rawvideo -pix_fmt "$pixfmt" \
        "$work/$name.src.yuv"; then
      echo "FAIL $name: ffmpeg could not make the source"; failed=$((failed + 1)); continue
    fi
    result=$(paste <(grep -o 'PSNR= *[0-9.]*' "$work/$name.vstats" | awk '{print $2}') \
                   <("$kplvc" compare "$work/$name.ours.yuv" "$work/$name.src.yuv" --size "$size" \
                       --pix-fmt "$pixfmt" | awk '/^frame/ {print $4}') |
             awk -v tol="$tol" '{ n++; d = $1 - $2; if (d < 0) d = -d; if (d > worst) worst = d;
                                  if (d > tol || NF < 2) bad++ }
               END { printf "%d frames, luma PSNR within %.2f dB of the encoder'"'"'s (allowed %s)\n", n, worst, tol;
                     exit (bad > 0 || n == 0) }')
    status=$?
    printf '%-4s %-28s %s %s: %s\n' "$([ $status = 0 ] && echo ok || echo FAIL)" "$name" "$size" "$pixfmt" "$result"
    if [ $status != 0 ]; then failed=$((failed + 1)); else rm -f "$work/$name".*.yuv; fi
    continue
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
