#!/bin/sh
# Summarises a kplvc-bench run per family: one Markdown table per family with
# the time of every kernel at each ISA level and the level the library
# dispatches to on this CPU, and (with gnuplot) a PNG of the speed-ups over the
# scalar code.
#
#   tools/bench-report.sh [-o DIR] [-j RUN.json | -b KPLVC-BENCH [-f FILTER] [-t SECONDS]]
#
# -b runs the benchmark itself (JSON output, three repetitions of at least
# SECONDS each, default 0.1, medians; only the per-level cases);
# -j reads a run made earlier with --benchmark_format=json (or
# --benchmark_out=FILE --benchmark_out_format=json). Output in DIR (default
# .): bench-report.md and, when gnuplot is installed, bench-speedup.png.
#
# How to read the tables: kplvc-bench times a kernel at a level only where
# that level's table installs a different function, so an empty cell means
# "same function as the level to its left". The dispatched column is the
# last variant timed, i.e. what the kernel table of this CPU's level holds.
# The per-family speed-up at a level is the geometric mean, over the
# family's kernels, of (scalar time) / (time of the function that level
# installs).
set -eu

out=.
json=
bench=
filter='/(c|sse2|ssse3|sse41|avx2|avx512)$'
mintime=0.1
while getopts o:j:b:f:t: opt; do
    case $opt in
    o) out=$OPTARG ;;
    j) json=$OPTARG ;;
    b) bench=$OPTARG ;;
    f) filter=$OPTARG ;;
    t) mintime=$OPTARG ;;
    *)
        sed -n '2,13p' "$0"
        exit 2
        ;;
    esac
done
if [ -z "$json" ] && [ -z "$bench" ]; then
    echo "bench-report.sh: give -j RUN.json or -b path/to/kplvc-bench" >&2
    exit 2
fi
mkdir -p "$out"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
if [ -n "$bench" ]; then
    json=$tmp/run.json
    "$bench" --benchmark_filter="$filter" --benchmark_repetitions=3 --benchmark_min_time="$mintime" \
        --benchmark_report_aggregates_only=true --benchmark_format=json >"$json"
fi

# name<TAB>ns for every per-level benchmark (family/kernel.../isa); with
# repetitions only the medians are kept.
awk '
function val(s) { sub(/^[^:]*: */, "", s); sub(/,$/, "", s); gsub(/"/, "", s); return s }
/"cpu_brand"/ { brand = val($0) }
/"name":/ { name = val($0); agg = ""; unit = "ns" }
/"aggregate_name":/ { agg = val($0) }
/"time_unit":/ {
    unit = val($0)
    if (agg != "" && agg != "median") next
    n = name; sub(/_median$/, "", n)
    t = tm
    if (unit == "us") t *= 1e3; else if (unit == "ms") t *= 1e6; else if (unit == "s") t *= 1e9
    print n "\t" t
}
/"cpu_time":/ { tm = val($0) + 0 }
END { print brand > "/dev/stderr" }
' "$json" 2>"$tmp/brand" | awk -F'\t' '
{
    n = split($1, p, "/")
    isa = p[n]
    if (isa !~ /^(c|sse2|ssse3|sse41|avx2|avx512)$/) next
    k = p[2]; for (i = 3; i < n; ++i) k = k "/" p[i]
    print p[1] "\t" k "\t" isa "\t" $2
}' >"$tmp/rows"

brand=$(cat "$tmp/brand")
awk -F'\t' -v brand="$brand" -v dat="$tmp/speedup.dat" '
BEGIN {
    nl = split("c sse2 ssse3 sse41 avx2 avx512", lv, " ")
    for (i = 1; i <= nl; ++i) li[lv[i]] = i
}
{
    if (!(($1 SUBSEP $2) in seen)) { seen[$1, $2] = 1; kern[$1, ++nk[$1]] = $2 }
    if (!($1 in fam)) { fam[$1] = 1; fams[++nf] = $1 }
    t[$1, $2, li[$3]] = $4
    used[li[$3]] = 1
}
END {
    printf "# kplvc-bench summary\n\nCPU: %s. Nanoseconds per call (median of the run); an empty cell is the same function as the level to its left; *dispatched* is the function the library uses on this CPU, with its speed-up over the scalar code.\n", brand
    hdr = "| kernel |"; sep = "|---|"
    for (i = 1; i <= nl; ++i) if (used[i]) { hdr = hdr " " lv[i] " |"; sep = sep "---:|" }
    hdr = hdr " dispatched |"; sep = sep "---|"
    printf "" > dat
    for (f = 1; f <= nf; ++f) {
        F = fams[f]
        printf "\n## %s\n\n%s\n%s\n", F, hdr, sep
        for (i = 1; i <= nl; ++i) { lsum[i] = 0; lcnt[i] = 0 }
        for (j = 1; j <= nk[F]; ++j) {
            K = kern[F, j]; line = "| " K " |"; last = 0; eff = ""
            for (i = 1; i <= nl; ++i) {
                if ((F SUBSEP K SUBSEP i) in t) { eff = t[F, K, i]; last = i; cell = sprintf("%.2f", eff) } else cell = ""
                if (used[i]) line = line " " cell " |"
                if (used[i] && eff != "" && ((F SUBSEP K SUBSEP 1) in t) && eff > 0) {
                    lsum[i] += log(t[F, K, 1] / eff); lcnt[i]++
                }
            }
            if ((F SUBSEP K SUBSEP 1) in t && last > 1)
                line = line sprintf(" %s (%.1fx) |", lv[last], t[F, K, 1] / t[F, K, last])
            else line = line " " lv[last] " |"
            print line
        }
        row = F; srow = "| " F " | " nk[F] " |"
        for (i = 2; i <= nl; ++i) if (used[i]) {
            g = lcnt[i] ? exp(lsum[i] / lcnt[i]) : 1
            row = row "\t" sprintf("%.3f", g); srow = srow sprintf(" %.2f |", g)
        }
        print row >> dat
        summary[f] = srow
    }
    # The per-family summary goes to its own file; the script puts it first.
    sh = "| family | kernels |"; ss = "|---|---:|"
    for (i = 2; i <= nl; ++i) if (used[i]) { sh = sh " " lv[i] " |"; ss = ss "---:|" }
    print "Geometric mean over the kernels of a family of (scalar time) / (time at the level): how many times faster than the scalar code each ISA level makes the family; the last column is what this CPU gets.\n\n" sh "\n" ss > (dat ".summary")
    for (f = 1; f <= nf; ++f) print summary[f] >> (dat ".summary")
    hd = "family"
    for (i = 2; i <= nl; ++i) if (used[i]) hd = hd "\t" lv[i]
    print hd > (dat ".head")
}' "$tmp/rows" >"$tmp/tables.md"
{
    sed -n '1,3p' "$tmp/tables.md"
    printf '\n## Per family\n\n'
    cat "$tmp/speedup.dat.summary"
    sed '1,3d' "$tmp/tables.md"
} >"$out/bench-report.md"
echo "wrote $out/bench-report.md"

if command -v gnuplot >/dev/null 2>&1; then
    cat "$tmp/speedup.dat.head" "$tmp/speedup.dat" >"$tmp/plot.dat"
    ncol=$(head -1 "$tmp/plot.dat" | awk -F'\t' '{ print NF }')
    gnuplot <<EOF
set terminal pngcairo size 1000,480 font ",10"
set output "$out/bench-speedup.png"
set title "kplvc: speed-up over the scalar code per family (geometric mean)\n$brand" noenhanced
set style data histograms
set style histogram clustered gap 1
set style fill solid 0.85 border -1
set boxwidth 0.9
set datafile separator "\t"
set key autotitle columnheader top left
set logscale y 2
set yrange [0.5:*]
set ylabel "times faster than scalar"
set xtics rotate by -30 noenhanced
set grid ytics
plot for [i=2:$ncol] "$tmp/plot.dat" using i:xtic(1)
EOF
    echo "wrote $out/bench-speedup.png"
fi
