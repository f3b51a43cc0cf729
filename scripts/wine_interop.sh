#!/bin/bash
# Deployments across platforms on 127.0.0.1, in plain mode (Wine has no
# OpenSSL): the Linux client deploys to the Windows daemon running under
# wine64, and the Windows client deploys to the Linux daemon. Each way a tree
# with sub-directories, names with blanks and non-ASCII letters, an empty file
# and a file of several MiB must arrive whole (names, sizes, CRCs, modification
# times to the second, and the read-only bit); a second deployment after one
# change sends that file alone, and -delete removes what the source lost.
# The Windows daemon also runs its post-deploy command through cmd, refuses a
# name Windows would change, and refuses -release where it cannot make the
# "current" link (Wine makes no links at all); the Windows client's release
# to the Linux daemon becomes current whole.
# Daemons are followed by their output lines and their exits, never by time.
#
# Usage: wine_interop.sh NATIVE_BUILD_DIR WINDOWS_BUILD_DIR
set -euo pipefail
export WINEDEBUG=-all LC_ALL=C.UTF-8

native_tool=$(realpath -m "${1:?usage: wine_interop.sh NATIVE_BUILD_DIR WINDOWS_BUILD_DIR}")/bin/vqglob
windows_tool=$(realpath -m "${2:?usage: wine_interop.sh NATIVE_BUILD_DIR WINDOWS_BUILD_DIR}")/bin/vqglob.exe
wine=${WINE64:-/usr/lib/wine/wine64}
wineserver=${WINESERVER:-/usr/lib/wine/wineserver}
for f in "$native_tool" "$windows_tool" "$wine"; do
    [ -x "$f" ] || [ -f "$f" ] || { echo "wine_interop: $f is missing" >&2; exit 1; }
done

# Bounds on a broken run, not synchronisation: a client, or a daemon's
# first line, that takes longer fails the check; no daemon outlives the other.
give_up_client=120
give_up_daemon=300

work=$(mktemp -d /tmp/vqglob-interop.XXXXXX)
daemon_pids=()
drain_pids=()
cleanup() {
    local status=$?
    # Both daemons stop on SIGINT (the Windows one as on Ctrl-C); timeout
    # passes it on.
    for pid in "${daemon_pids[@]}"; do
        kill -INT "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    for pid in "${drain_pids[@]}"; do
        kill "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    if [ "$status" -ne 0 ]; then
        for log in "$work"/*.out.log "$work"/*.serve.log; do
            [ -f "$log" ] && { echo "--- $log"; cat "$log"; }
        done >&2
    fi
    [ -n "${KEEP_WORK:-}" ] || rm -rf "$work"
    exit "$status"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

fail() {
    echo "wine_interop: FAILED: $*" >&2
    exit 1
}

# The name Wine gives a Linux path: drive Z: is the root.
win_path() { printf 'Z:%s' "${1//\//\\}"; }

# One line per regular file below $1, sorted: name, size, modification time
# (seconds), CRC and whether the owner may write. The daemon's own entries
# (.vqglob-*, releases, current) are left out.
manifest() {
    (cd "$1" && find . \( -path './.vqglob-*' -o -path ./releases -o -path ./current \) -prune -o -type f -print0 |
        sort -z | while IFS= read -r -d '' f; do
            printf '%s|%s|%s|%s|%s\n' "${f#./}" "$(stat -c %s "$f")" "$(stat -c %Y "$f")" \
                "$(cksum <"$f" | cut -d' ' -f1)" "$(stat -c %A "$f" | cut -c3)"
        done)
}

same_tree() {  # what, source, target
    manifest "$2" >"$work/want"
    manifest "$3" >"$work/got"
    [ -s "$work/want" ] || fail "$1: the source listing is empty"
    if ! diff -u "$work/want" "$work/got" >&2; then
        fail "$1: the trees differ (- source, + target)"
    fi
    echo "ok: $1 ($(wc -l <"$work/want") files alike)"
}

# Starts a daemon (name, command...) and waits for its "listening on" line;
# the port goes to $port. The rest of its output is drained into a log so
# that it never blocks on a full pipe.
start_daemon() {
    local name=$1 line fd
    shift
    mkfifo "$work/$name.fifo"
    # timeout passes the signals of stop_daemon on to the daemon.
    timeout -k 10 "$give_up_daemon" "$@" >"$work/$name.fifo" 2>&1 &
    daemon_pids+=($!)
    exec {fd}<"$work/$name.fifo"
    port=
    while IFS= read -r -t "$give_up_client" line <&"$fd"; do
        line=${line%$'\r'}
        echo "$line" >>"$work/$name.out.log"
        case $line in
        "listening on "*) port=${line##*:}; break ;;
        esac
    done
    [ -n "$port" ] || fail "$name: the daemon ended without listening"
    cat <&"$fd" >>"$work/$name.out.log" &
    drain_pids+=($!)
    exec {fd}<&-
    echo "ok: $name listens on 127.0.0.1:$port"
}

# Writes a plain-mode configuration: file, target root, log file, command.
write_config() {
    printf '[Server]\nListen Address=127.0.0.1\nPort=0\nTarget Root=%s\nInsecure Loopback=TRUE\nLog File=%s\nPost Deploy Command=%s\n' \
        "$2" "$3" "$4" >"$1"
}

# Runs a client (name, command...), keeping its output in $out; fails
# loudly when it fails.
run_client() {
    local name=$1
    shift
    if ! out=$(timeout -k 10 "$give_up_client" "$@" 2>&1); then
        printf '%s\n' "$out" >&2
        fail "$name: the client failed"
    fi
    out=${out//$'\r'/}
}

expect_counts() {  # what, "N sent", "N deleted"
    case $out in
    *"done: $2, "*"$3"*) echo "ok: $1: $2, $3" ;;
    *) printf '%s\n' "$out" >&2; fail "$1: expected $2 and $3" ;;
    esac
}

# The source tree; the second argument tells the seed of its big file.
make_tree() {
    local src=$1
    mkdir -p "$src/sub dir/deeper" "$src/données/ñandú" "$src/日本"
    printf 'top\n' >"$src/top.txt"
    printf 'blank names\n' >"$src/sub dir/a file with spaces.txt"
    printf 'deep\n' >"$src/sub dir/deeper/leaf.cfg"
    printf 'accents\n' >"$src/données/ñandú/fichier é.txt"
    printf 'kanji\n' >"$src/日本/ファイル.txt"
    : >"$src/empty"
    head -c $((5 * 1024 * 1024 + 123)) /dev/urandom >"$src/sub dir/big.bin"
    printf 'read only\n' >"$src/readonly.txt"
    chmod 0444 "$src/readonly.txt"
    printf '#!/bin/sh\necho run\n' >"$src/run.sh"
    chmod 0755 "$src/run.sh"
    # Times of the past, each its own, so that a copy carrying "now" shows.
    local n=0
    while IFS= read -r -d '' f; do
        n=$((n + 1))
        touch -h -d "@$((1500000000 + n * 86413))" "$f"
    done < <(find "$src" -type f -print0)
}

# Changes one file of $1, its content and its time.
change_one() {
    printf 'top, changed\n' >"$1/top.txt"
    touch -d "@1600000007" "$1/top.txt"
}

# A stop of the daemon and what it logged on the way: its exit, then the end
# of its output.
stop_daemon() {  # signal
    kill "-$1" "${daemon_pids[0]}"
    local status=0
    wait "${daemon_pids[0]}" || status=$?
    wait "${drain_pids[0]}" || true
    daemon_pids=()
    drain_pids=()
    return "$status"
}

# Each wine64 start would otherwise start and stop a Wine server of its own.
# The first Wine process also starts the prefix's services, which keep the
# standard output they were given: they get none, so that no pipe of ours
# stays open behind them.
"$wineserver" -p 60 </dev/null >/dev/null 2>&1 || true
"$wine" cmd.exe /c exit </dev/null >/dev/null 2>&1 || fail "wine64 does not run programs"

# ---- the Linux client to the Windows daemon -------------------------------
src=$work/src
make_tree "$src"
root_w=$work/root-wïn
mkdir "$root_w"
write_config "$work/win.conf" "$(win_path "$root_w")" "$(win_path "$work/wïn.serve.log")" \
    "echo committed in %CD%>>$(win_path "$work/post-win.txt")"
start_daemon win "$wine" "$windows_tool" serve "-config=$(win_path "$work/win.conf")"
target=127.0.0.1:$port

run_client "linux->windows" "$native_tool" deploy "$src" "-to=$target" -insecure
expect_counts "linux->windows first deployment" "$(manifest "$src" | wc -l) sent" "0 deleted"
case $out in *"post-deploy exit 0"*) ;; *) printf '%s\n' "$out" >&2; fail "the post-deploy command did not run" ;; esac
same_tree "linux->windows first deployment" "$src" "$root_w"

change_one "$src"
run_client "linux->windows" "$native_tool" deploy "$src" "-to=$target" -insecure
expect_counts "linux->windows after one change" "1 sent" "0 deleted"
same_tree "linux->windows after one change" "$src" "$root_w"

rm "$src/sub dir/deeper/leaf.cfg"
run_client "linux->windows" "$native_tool" deploy "$src" "-to=$target" -insecure -delete
expect_counts "linux->windows with -delete" "0 sent" "1 deleted"
same_tree "linux->windows with -delete" "$src" "$root_w"
[ ! -e "$root_w/sub dir/deeper" ] || fail "linux->windows: the emptied directory stayed"

# The post-deploy command ran through cmd once per committed deployment,
# in the target root (whose "ï" cmd writes in its own code page).
[ "$(grep -acF "committed in $(win_path "$work")\root-w" "$work/post-win.txt")" = 3 ] ||
    fail "the post-deploy command did not run three times in the target root: $(cat "$work/post-win.txt")"
echo "ok: the post-deploy command ran through cmd in the target root"

# A name Windows would store under another one is refused, not changed.
odd=$work/odd
cp -a "$src" "$odd"
printf 'dot\n' >"$odd/sub dir/trailing dot."
if out=$(timeout -k 10 "$give_up_client" "$native_tool" deploy "$odd" "-to=$target" -insecure 2>&1); then
    fail "linux->windows: a name ending in a dot was accepted"
fi
case $out in
*"Windows cannot hold it"*) echo "ok: a name Windows cannot hold is refused" ;;
*) printf '%s\n' "$out" >&2; fail "linux->windows: the refusal of a name ending in a dot does not say why" ;;
esac
same_tree "linux->windows after the refused name" "$src" "$root_w"

# Releases need "current" to be a link. Where the system makes links the
# release arrives whole behind it; where it cannot (Wine), the daemon refuses
# before anything is received and leaves nothing behind.
if out=$(timeout -k 10 "$give_up_client" "$native_tool" deploy "$src" "-to=$target" -insecure -release 2>&1); then
    same_tree "linux->windows release" "$src" "$root_w/current"
else
    case $out in
    *"cannot make links"*) ;;
    *) printf '%s\n' "$out" >&2; fail "linux->windows: -release failed without saying links are missing" ;;
    esac
    [ ! -e "$root_w/releases" ] && [ ! -e "$root_w/current" ] || fail "linux->windows: a refused release left files"
    same_tree "linux->windows after the refused release" "$src" "$root_w"
    echo "ok: -release is refused where links cannot be made:"
    printf '%s\n' "$out" | grep -F "cannot make links" | head -1
fi

# Ctrl-C reaches the Windows daemon as SIGINT does under Wine: it stops as
# it would at a console, removing its temporaries.
stop_daemon INT || fail "the Windows daemon did not stop cleanly"
[ ! -e "$root_w/.vqglob-tmp" ] || fail "the Windows daemon left its temporary directory"

# The daemon's log file has the non-ASCII name it was given.
[ "$(grep -c "deployment committed" "$work/wïn.serve.log")" = 3 ] ||
    fail "the Windows daemon's log file does not hold its three deployments under its own name"

# ---- the Windows client to the Linux daemon -------------------------------
src=$work/src2
make_tree "$src"
root_l=$work/root-linux
mkdir "$root_l"
write_config "$work/linux.conf" "$root_l" "$work/linux.serve.log" ""
start_daemon linux "$native_tool" serve "-config=$work/linux.conf"
target=127.0.0.1:$port

run_client "windows->linux" "$wine" "$windows_tool" deploy "$(win_path "$src")" "-to=$target" -insecure
expect_counts "windows->linux first deployment" "$(manifest "$src" | wc -l) sent" "0 deleted"
same_tree "windows->linux first deployment" "$src" "$root_l"
# Windows knows no group or others: what it sends is writable by the owner alone.
writable=$(find "$root_l" -type f -perm /022)
[ -z "$writable" ] || fail "windows->linux: files arrived writable by group or others: $writable"

change_one "$src"
run_client "windows->linux" "$wine" "$windows_tool" deploy "$(win_path "$src")" "-to=$target" -insecure
expect_counts "windows->linux after one change" "1 sent" "0 deleted"
same_tree "windows->linux after one change" "$src" "$root_l"

rm "$src/sub dir/deeper/leaf.cfg"
run_client "windows->linux" "$wine" "$windows_tool" deploy "$(win_path "$src")" "-to=$target" -insecure -delete
expect_counts "windows->linux with -delete" "0 sent" "1 deleted"
same_tree "windows->linux with -delete" "$src" "$root_l"

# The Windows client asks for a release, which the Linux daemon can make.
run_client "windows->linux" "$wine" "$windows_tool" deploy "$(win_path "$src")" "-to=$target" -insecure -release
case $out in *", release "*) ;; *) printf '%s\n' "$out" >&2; fail "windows->linux: no release id reported" ;; esac
[ -L "$root_l/current" ] || fail "windows->linux: the release did not become current"
same_tree "windows->linux release" "$src" "$root_l/current"

stop_daemon TERM || fail "the Linux daemon did not stop cleanly"
[ ! -e "$root_l/.vqglob-tmp" ] || fail "the Linux daemon left its temporary directory"
echo "wine_interop: all deployments across platforms arrived whole"
