#!/bin/sh
# The ISA boundary, checked on the built objects rather than trusted.
#
#   isa-boundary.sh LIST
#
# LIST (written by CMakeLists.txt) holds lines "key value":
#   nm|objdump|readelf PATH   the binutils to use
#   library PATH              the shared library
#   level NAME                the x86 levels, in order
#   vex NAME                  the levels whose files may hold VEX/EVEX code
#   object PATH               every object of the library
#
# Checks:
#  1. An object compiled for a level (x86/foo_<level>.cpp) defines no global
#     symbol but its upgrade entries, kplvc::<family>::x86::<level>::upgrade_*:
#     in particular no weak or vague-linkage symbol (an inline function or
#     template instance), which the linker could pick to serve another level.
#  2. No object below the first VEX level (the ISA files of lower levels and
#     every plain file) contains a VEX- or EVEX-encoded instruction.
#  3. The shared library needs nothing but the C library (and libm): no C++
#     runtime. Sanitizer runtimes are allowed.
set -u
list=$1
NM=$(sed -n 's/^nm //p' "$list")
OBJDUMP=$(sed -n 's/^objdump //p' "$list")
READELF=$(sed -n 's/^readelf //p' "$list")
LIBRARY=$(sed -n 's/^library //p' "$list")
LEVELS=$(sed -n 's/^level //p' "$list")
VEX=$(sed -n 's/^vex //p' "$list")
fail=0
objects=0

# The level an object was compiled for, empty for a plain file.
level_of() {
    for l in $LEVELS; do
        case "$1" in */x86/*_"$l".cpp.o | */x86/*_"$l".cpp.obj) echo "$l"; return ;; esac
    done
}

vex_allowed() {
    for l in $VEX; do [ "$l" = "$1" ] && return 0; done
    return 1
}

for obj in $(sed -n 's/^object //p' "$list"); do
    objects=$((objects + 1))
    level=$(level_of "$obj")
    if [ -n "$level" ]; then
        # Global (upper-case, unique or indirect) defined symbols.
        bad=$("$NM" -P --defined-only "$obj" | awk '$2 ~ /^[A-Zui]$/ {print $2, $1}' |
            while read -r type sym; do
                case "$sym" in __x86.get_pc_thunk.*) continue ;; esac  # i386 PIC helper, no ISA code
                name=$(echo "$sym" | c++filt)
                if [ "$type" != T ] || ! echo "$name" | grep -Eq "^kplvc::[a-z0-9_]+::x86::$level::upgrade_[a-z0-9_]+\("; then
                    echo "    $type $name"
                fi
            done)
        if [ -n "$bad" ]; then
            echo "FAIL $obj ($level) defines symbols other than its upgrade entries:"
            echo "$bad"
            fail=1
        fi
    fi
    if [ -z "$level" ] || ! vex_allowed "$level"; then
        # First byte after any segment or address-size prefix: C4/C5 is VEX,
        # 62 is EVEX (in 32-bit code only when the next byte has mod = 11;
        # otherwise they are LES/LDS/BOUND).
        m32=0
        "$OBJDUMP" -f "$obj" | grep -q 'elf32' && m32=1
        hit=$("$OBJDUMP" -d -w --insn-width=16 "$obj" | awk -F'\t' -v m32=$m32 '
            /^[0-9a-f]+ <.*>:$/ { fn = $0 }
            /^ *[0-9a-f]+:\t/ {
                n = split($2, b, " ")
                i = 1
                while (i <= n && b[i] ~ /^(26|2e|36|3e|64|65|67)$/) i++
                if (i > n || b[i] !~ /^(c4|c5|62)$/) next
                if (m32 && (i == n || b[i + 1] !~ /^[c-f]/)) next
                print fn " " $3
                exit
            }')
        if [ -n "$hit" ]; then
            echo "FAIL $obj (${level:-plain}) holds VEX/EVEX code: $hit"
            fail=1
        fi
    fi
done

if [ "$objects" -eq 0 ]; then
    echo "FAIL no objects listed in $list"
    fail=1
fi

needed=$("$READELF" -d "$LIBRARY" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
# A sanitizer build links its runtime, and the UBSan runtime's C++ half brings
# libstdc++ and libgcc_s with it: those are the instrumentation's, not ours.
sanitized=0
case " $needed " in *" libasan.so."* | *" libubsan.so."* | *" libtsan.so."*) sanitized=1 ;; esac
for lib in $needed; do
    case "$lib" in
        libc.so.* | libm.so.* | ld-linux*.so.* | libasan.so.* | libubsan.so.* | liblsan.so.* | libtsan.so.*) ;;
        libstdc++.so.* | libgcc_s.so.*) [ "$sanitized" -eq 1 ] || {
            echo "FAIL $LIBRARY needs $lib (only the C library and libm are allowed)"
            fail=1
        } ;;
        *)
            echo "FAIL $LIBRARY needs $lib (only the C library and libm are allowed)"
            fail=1
            ;;
    esac
done

if [ "$fail" -eq 0 ]; then
    echo "isa-boundary: $objects objects checked; $(basename "$LIBRARY") needs:" $needed
fi
exit $fail
