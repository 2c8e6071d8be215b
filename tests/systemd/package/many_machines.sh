# shellcheck shell=bash disable=SC2154
# What is in the journal of a service and of an instance, and what the guide "Many machines" does with it,
# by its own commands: those of its blocks of shell text.

# guide HEADING...: the commands below these headings.
guide() {
    local heading
    for heading; do
        inside cat /usr/share/doc/zelk-agent/many_machines.md | awk -v heading="$heading" '
            /^##/ { here = $0 ~ "^#+ " heading "$" }
            /^```/ { block = here && /sh$/; next }
            block'
    done
}
follow() { inside bash -ec "cd /root; $(guide "$@")"; }
quietly() { "$@" >guide.log 2>&1 || cat guide.log; }

agents=(zelk_agent zelk_agent-two)
in_agent() { inside timeout 60 zelkctl --workdir "/var/lib/$1" run "$2"; }
# found COUNT MATCH...: whether the journal has so many messages by now.
found() {
    inside journalctl --sync
    [ "$(inside journalctl -q -o cat --output-fields=_PID "${@:2}" | wc -l)" -eq "$1" ]
}
fields() { inside journalctl -q -o json "$1" | jq -cS "with_entries(select(.key | test(\"^(ZELKA_.*|MESSAGE.*|PRIORITY|_SYSTEMD_UNIT|$2)$\"))) | del(.ZELKA_EVENT_TIME)"; }

section "events and records of the log are in the journal with their fields"
for name in "${agents[@]}"; do
    in_agent "$name" '
        dom:AgentEventWrite { code = 42, severity = "fatal", data = "a\27b" }
        dom:Log("info", "noted", { mount = "/var", password = "hidden" })
        require("task").start("sample", function() error("boom", 0) end)'
done
await found 2 ZELKA_EVENT_CODE=5201
fields ZELKA_EVENT_CODE=42
fields MOUNT=/var "MOUNT|PASSWORD"
fields ZELKA_EVENT_CODE=5201 | jq -c '[.PRIORITY, .MESSAGE, .ZELKA_WORKDIR]' | sort
inside journalctl -q -x MESSAGE_ID=14e85decfa48446396b5f9699a97bfec | grep -c "Subject: A task has failed$"

section "a journal that does not read holds no agent up, and gets everything later"
inside systemctl kill -s STOP --kill-whom=main systemd-journald
in_agent zelk_agent-two 'for i = 1, 2000 do dom:AgentEventWrite { code = 43, severity = "info" } end print("written")'
inside systemctl kill -s CONT --kill-whom=main systemd-journald
await found 2000 ZELKA_EVENT_CODE=43
inside journalctl -q -o json ZELKA_EVENT_CODE=43 | jq -s '[.[].ZELKA_EVENT_ID | tonumber] | .[-1] - .[0], . == sort'

section "events of both are gathered on a collector, over TLS"
mkdir "$tree/etc/ssl"
cp /etc/ssl/openssl.cnf "$tree/etc/ssl"
echo "127.0.0.1 collector.example" >"$tree/etc/hosts"
quietly follow Certificates "The collector" "Each machine"
have_come() { [ "$(follow Queries 2>/dev/null | wc -l)" -eq 2 ]; }
await have_come
follow Queries | sed "s/^$(basename "$SCRATCH")\t/HOST\t/" | sort

section "a plug-in comes and goes with a Debian package"
cp "$BUILT"/../packages/Feature-SAMPLE-1.0.zk[pu] "$tree/root"
quietly follow "Packages to all machines"
brought() { inside ls /opt/Orvane/Agent/ext 2>/dev/null | paste -sd ' '; }
quietly inside dpkg -i /root/zelka-sample_1.0_all.deb
brought
quietly inside dpkg -r zelka-sample
brought
await found 1 ZELKA_EVENT_CODE=5105
inside journalctl -q -o cat ZELKA_EVENT_CODE=5101 + ZELKA_EVENT_CODE=5105
inside sh -c 'cd /opt/Orvane/Agent && rm -r ext *.done'

section "the agents are monitored"
follow Monitoring | sed -E 's/\t[0-9]+\.[^\t]*/\tVERSION/'
metrics=$tree/var/lib/prometheus/node-exporter/zelka.prom
mkdir -p "$(dirname "$metrics")"
quietly follow Prometheus
await test -s "$metrics"
grep '^zelka_up{' "$metrics"
