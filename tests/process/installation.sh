# shellcheck shell=bash
# For the cases of packages and companions: a scratch installation of the agent in $SCRATCH/bin.

export ZELKA_REGISTRY=$SCRATCH/registry.ini
mkdir -p bin && cp "$AGENT" bin

cat >app.lua <<'EOF'
-- Tells what maintenance has left for an application: the events and the wish for a heartbeat.
for _, event in ipairs(dom:AgentEvents(0)) do
    print(("event %d %s %s"):format(event.code, event.severity, event.data))
    assert(event.time == event.jtime // 1000 and event.jtime >= dom:Get("app.startTime") - 60000)
end
print("heartbeat " .. tostring(dom:Get("zelka.HeartbeatNow")))
return {}
EOF
sed -i 's|event.jtime // 1000|math.floor(event.jtime / 1000)|' app.lua

# package NAME ENTRY=TEXT...: makes a package in the installation; without entries an empty archive.
package() {
    local archive=$SCRATCH/bin/$1 stage entry names=()
    shift
    if [ $# -eq 0 ]; then
        { printf 'PK\5\6' && head -c 18 /dev/zero; } >"$archive"
        return
    fi
    stage=$(mktemp -d "$SCRATCH/stage-XXXXXX")
    for entry in "$@"; do
        mkdir -p "$(dirname "$stage/${entry%%=*}")"
        printf '%s' "${entry#*=}" >"$stage/${entry%%=*}"
        names+=("${entry%%=*}")
    done
    (cd "$stage" && zip -q -X -D - "${names[@]}" >"$archive")
    rm -r "$stage"
}

# The agent of the installation, with what it told of the run.
start() { AGENT=$SCRATCH/bin/zelk_agent agent --appname app "$@"; }
log() { sed -E 's/^[-0-9]+ [0-9:]+ //' work/log/app.log; }

# One round of maintenance as an operator sees it: output, log, and the files beside the program.
maintain() {
    start --install_plugins "$@"
    log
    rm -f work/log/app.log
    files
}

files() { (cd bin && find . -mindepth 1 -type d -empty -printf '%P/\n' -o ! -type d ! -name zelk_agent -printf '%P\n' | LC_ALL=C sort); }

# case_of TITLE: what a case needs from the beginning.
case_of() {
    echo "-- $1"
    find bin -mindepth 1 ! -name zelk_agent -delete
    rm -rf work registry.ini ext
}

# Runs a command without the rights by which root passes over the modes of files.
without_rights() {
    if [ "$(id -u)" -eq 0 ]; then
        setpriv --bounding-set=-all --inh-caps=-all "$@"
    else
        "$@"
    fi
}

# maintain, without those rights.
unprivileged() {
    export -f maintain start log files
    without_rights bash -c 'maintain "$@"' bash "$@"
}
