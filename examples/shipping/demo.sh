# Sourced by demo: ships the tables of the demonstration engine to a cluster of three servers on this machine while they are
# stored, receives them into another folder, kills a server and the shipper on the way, and compares. Needs $build, $root and
# $jdk, runs in build/demo.

PATH+=:/usr/sbin  # where the package puts nats-server, and plain users do not look
readonly shipping_ports=(24222 24223 24224)
readonly shipping_urls=$(printf ',nats://127.0.0.1:%s' "${shipping_ports[@]}" | cut -c2-)
shipping_processes=()

shipping_end() {
    kill -9 "${shipping_processes[@]}" 2>/dev/null || true
}

# shipping_server <number>
shipping_server() {
    local port=${shipping_ports[$1]} routes
    routes=$(printf ' nats://127.0.0.1:%s' "${shipping_ports[@]/#242/252}")
    mkdir -p "servers/$1"
    cat >"servers/$1.conf" <<END
server_name: demo$1
listen: 127.0.0.1:$port
jetstream { store_dir: "$PWD/servers/$1" }
cluster { name: demo, listen: "127.0.0.1:${port/#242/252}", routes: [$(tr ' ' '\n' <<<"$routes" | sed '/^$/d' | paste -sd,)] }
END
    nats-server -c "servers/$1.conf" >"servers/$1.log" 2>&1 &
    shipping_processes+=($!)
    disown
}

# shipping_start <verb> <argument>...: its process id is in $started.
shipping_start() {
    "$build/tabulo" "$1" --stream DEMO --server "$shipping_urls" "${@:2}" >>"$1.log" 2>&1 &
    started=$!
    shipping_processes+=("$started")
    disown
}

# shipping_wait <number of those who answer>: until all have nothing left to do, and each table has a copy.
shipping_wait() {
    local lag
    for _ in {1..300}; do
        lag=$("$build/tabulo" lag --stream DEMO --server "$shipping_urls" -o ndjson 2>/dev/null || true)
        if [[ $(grep -c '"messages":0,' <<<"$lag") == "$1" && $(ls tables) == "$(ls copy)" ]]; then
            return 0
        fi
        sleep 0.2
    done
    printf 'the copy has not come to its end in a minute; the logs are in %s\n' "$PWD" >&2
    return 1
}

# shipping_stop <process>: interrupts it, and waits until it has ended.
shipping_stop() {
    kill -INT "$1"
    while kill -0 "$1" 2>/dev/null; do
        sleep 0.1
    done
}

shipping_demo() {
    local server shipper receiver table status=0
    trap shipping_end EXIT
    setup_say "three servers on this machine, in $PWD/servers"
    for server in 0 1 2; do
        shipping_server "$server"
    done
    mkdir -p tables copy
    setup_say "tabulo ship tables --stream DEMO, and tabulo receive copy --stream DEMO"
    shipping_start ship tables
    shipper=$started
    shipping_start receive copy
    receiver=$started
    for _ in {1..150}; do  # until the servers have agreed on who leads, and the stream is there
        "$build/tabulo" lag --stream DEMO --server "$shipping_urls" 2>/dev/null | grep -q shipper && break
        sleep 0.2
    done
    setup_say "the engine stores the recorded days"
    "$jdk/bin/java" -cp "$build/java/tabulo.jar:$build/java/tabulo-examples.jar" \
        com.corvane.kestrova.examples.DemoEngine "$build/libtabulo.so" "$root/examples/data" "$PWD" store-only >engine.log 2>&1 &
    local engine=$!
    until [[ -s tables/client-day1 ]]; do
        sleep 0.02
    done
    setup_say "a server and the shipper are killed"
    kill -9 "${shipping_processes[0]}" "$shipper"
    sleep 0.5
    shipping_start ship tables
    wait "$engine"
    shipping_wait 2
    "$build/tabulo" lag --stream DEMO --server "$shipping_urls"
    setup_say "both end, and each table is compared with its copy"
    shipping_stop "$started"
    shipping_wait 1
    shipping_stop "$receiver"
    for table in tables/*; do
        if cmp "$table" "copy/${table#tables/}"; then
            printf '%s: %s bytes, the same\n' "$table" "$(stat -c %s "$table")"
        else
            status=1
        fi
    done
    return "$status"
}
