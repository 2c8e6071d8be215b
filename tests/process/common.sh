# shellcheck shell=bash
# What the cases share; every shell of a case reads it first.

skip() {
    echo "SKIP: $*"
    exit 77
}

# Runs a command until it succeeds, for a minute at most.
eventually() {
    local deadline=$((SECONDS + 60))
    until "$@"; do
        [ $SECONDS -lt $deadline ] || { echo "never came true: $*" && return 1; }
        sleep 0.02
    done
}

# How the application app.lua is run, which does what stands behind "--".
app=(--workdir "$SCRATCH/work" --lua_path "$SCRATCH/?.lua" --appname app)

# agent OPTIONS...: runs it and prints the exit code; program OPTIONS...: the same without its name.
agent() { program --appname app "$@"; }
program() {
    "$AGENT" "${app[@]:0:4}" "$@"
    echo "exit code $?"
}

# in_background OPTIONS...: starts app.lua and goes on. What it prints is read from descriptor 3.
# shellcheck disable=SC2034
in_background() {
    exec 3< <(exec "$AGENT" "${app[@]}" "$@")
    pid=$!
}

# The log without times and ids.
untimed() { sed -E 's/^[-0-9]+ [0-9:]+ //; s/(pid=|Process )[0-9]{2,}/\1PID/'; }
log() { untimed <"$SCRATCH/work/log/app.log"; }

# ---- packages ----

# case_of TITLE: a new scratch installation in the folder bin, which is the agent from now on.
case_of() {
    echo "-- $1"
    rm -rf bin work registry.ini ext
    mkdir bin
    cp "$BUILT/zelk_agent" bin
    export AGENT=$SCRATCH/bin/zelk_agent ZELKA_REGISTRY=$SCRATCH/registry.ini
}

# package NAME ENTRY=TEXT...: makes a package in the installation; without entries an empty archive.
package() {
    local archive=$SCRATCH/bin/$1 stage entry
    shift
    printf 'PK\5\6%018d' 0 | tr 0 '\0' >"$archive"
    [ $# -gt 0 ] || return
    stage=$(mktemp -d "$SCRATCH/stage-XXXXXX")
    for entry; do
        mkdir -p "$(dirname "$stage/${entry%%=*}")"
        printf '%s' "${entry#*=}" >"$stage/${entry%%=*}"
    done
    (cd "$stage" && zip -q -X -D - "${@%%=*}" >"$archive")
}

# One round of maintenance as an operator sees it: output, log, and the files beside the program.
maintain() {
    agent --install_plugins "$@" -- events
    log
    rm -f work/log/app.log
    files
}

files() { find bin -mindepth 1 -type d -empty -printf '%P/\n' -o ! -type d ! -name zelk_agent -printf '%P\n' | LC_ALL=C sort; }

# Makes a command of this shell, without the rights by which root passes over the modes of files.
without_rights() {
    local drop=()
    [ "$(id -u)" -ne 0 ] || drop=(setpriv --bounding-set=-all --inh-caps=-all)
    exec "${drop[@]}" "$@"
}

# versions GROWTH: makes 200 files in old/data and in new/data, each by so many bytes longer than the one
# before, a package of the new ones, and a list of the sums of all.
versions() {
    local version i
    for version in old new; do
        mkdir -p $version/data
        for i in {1..200}; do
            { echo "$version $i" && head -c $((i * $1)) /dev/urandom; } >$version/data/"$i"
        done
        (cd $version && sha256sum data/*) >>known.sums
    done
    (cd new && zip -q -r -X ../Feature-X-1.zkp data)
}

# Files of the installation that are neither old nor new.
damaged() { (cd bin && sha256sum data/*) | grep -vxFf known.sums; }

# ---- zelkctl ----

# ctl COMMAND...: asks the agent of the case, and tells the exit code of what was not done.
ctl() {
    "$BUILT/zelkctl" --workdir "$SCRATCH/work" "$@"
    local code=$?
    [ $code -eq 0 ] || echo "exit code $code"
}
both() {
    ctl "$@"
    ctl --json "$@"
}

# What zelkctl prints, without what differs from run to run.
steady() {
    sed -E 's/[-0-9]{10} [0-9:]{8}/TIME/g; s/[0-9.]+ ([KMGT]i)?B\>/SIZE/g; s/[0-9]+ (d|h|min|m?s)( [0-9]+ (h|min|s))?\>/DURATION/g
        s/("(started|time|pid|[a-z_]+_(ms|bytes))"):[0-9]+/\1:N/g; s/("(version|lua|openssl|sqlite|wxwidgets)"):"[^"]*"/\1:"V"/g
        s/^(process +)[0-9]+/\1PID/; s/ [0-9]+(\.[0-9]+){2},/ V,/; s/^versions .*/versions  ALL/; s/0x[0-9a-f]+/ADDRESS/g; s/  +/  /g'
}
