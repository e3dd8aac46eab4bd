#!/usr/bin/env bash
# A throw-away S3 server for tests: Ceph's radosgw over a store in memory, on the loopback
# interface, for the folder DIR.
#   server.sh start DIR    installs what is missing, starts; DIR/s3.env then says where it listens
#   server.sh kill DIR     ends the gateway at once; the store lives on
#   server.sh resume DIR   starts the gateway again, on the same port
#   server.sh stop DIR     ends everything and removes it
# Left alone, it ends by itself after KELVO_S3_MINUTES (20). KELVO_S3_CACHE=true lets the gateway
# keep what it knows of users and buckets, for a server that nobody kills.
set -u
verb=${1:?start, kill, resume or stop}
mkdir -p "${2:?folder}"
folder=$(cd "$2" && pwd)
env_file=$folder/s3.env
access=KELVOTEST
secret=kelvotestsecret
# shellcheck disable=SC1090
[ -f "$env_file" ] && . "$env_file" # home, ports
export CEPH_CONF=${home:-/nonexistent}/ceph.conf

fail() { echo "$*" >&2; exit 1; }
alive() { [ -n "$1" ] && kill -0 "$1" 2>/dev/null; }
# Only a process that runs in this server's folder; numbers are used again.
pid_of() {
  local pid
  pid=$(cat "$home/run/$1.pid" 2>/dev/null) || return 0
  grep -qz "^CEPH_CONF=$CEPH_CONF\$" "/proc/$pid/environ" 2>/dev/null && echo "$pid"
}

end() { # name signal
  local pid i
  pid=$(pid_of "$1")
  alive "$pid" || return 0
  kill "-$2" "$pid"
  for i in $(seq 50); do alive "$pid" || return 0; sleep 0.1; done
  kill -KILL "$pid" 2>/dev/null
}

install() {
  local programs=(radosgw radosgw-admin ceph ceph-mon ceph-osd curl openssl)
  [ "$(command -v "${programs[@]}" | wc -l)" = ${#programs[@]} ] && return
  local root=()
  [ "$(id -u)" = 0 ] || root=(sudo)
  echo "Installing radosgw"
  "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
  "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
    radosgw ceph-mon ceph-osd ceph-common curl openssl >/dev/null || fail "cannot install radosgw"
}

free_port() {
  local candidate
  while :; do
    candidate=$((20000 + RANDOM % 10000))
    (: >"/dev/tcp/127.0.0.1/$candidate") 2>/dev/null || { echo "$candidate"; return; }
  done
}

configure() { # cluster id
  local mon2 mon1
  mon2=$(free_port)
  mon1=$(free_port)
  cat >"$home/ceph.conf" <<CONF
[global]
fsid = $1
mon host = [v2:127.0.0.1:$mon2,v1:127.0.0.1:$mon1]
mon initial members = a
public network = 127.0.0.0/8
keyring = $home/keyring
auth allow insecure global id reclaim = false
osd pool default size = 1
osd pool default min size = 1
osd pool default pg num = 4
osd pool default pgp num = 4
osd crush chooseleaf type = 0
mon allow pool size one = true
mon max pg per osd = 1000
mon data = $home/mon
osd data = $home/osd
osd objectstore = memstore
memstore device bytes = 2147483648
osd class load list = *
osd class default list = *
run dir = $home/run
admin socket = $home/run/\$name.asok
log file = $home/log/\$name.log
pid file = $home/run/\$name.pid
crash dir = $home/log
rgw data = $home/rgw
[client.rgw]
rgw frontends = beast tcp_nodelay=1 endpoint=127.0.0.1:$port ssl_endpoint=127.0.0.1:$tls_port ssl_certificate=$home/tls.pem ssl_private_key=$home/tls.key
rgw dns name = localhost
rgw thread pool size = 32
# Its notices would wait for a gateway that was killed.
rgw cache enabled = ${KELVO_S3_CACHE:-false}
CONF
  # A certificate that nobody trusts.
  openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=localhost \
    -addext 'subjectAltName=DNS:localhost,DNS:*.localhost' \
    -keyout "$home/tls.key" -out "$home/tls.pem"
  local make=(ceph-authtool "$home/keyring" --gen-key)
  ceph-authtool --create-keyring "$home/keyring" --gen-key -n mon. --cap mon 'allow *'
  "${make[@]}" -n client.admin --cap mon 'allow *' --cap osd 'allow *'
  "${make[@]}" -n client.rgw --cap mon 'allow *' --cap osd 'allow *'
  "${make[@]}" -n osd.0 --cap mon 'allow profile osd' --cap osd 'allow *'
  monmaptool --create --addv a "[v2:127.0.0.1:$mon2,v1:127.0.0.1:$mon1]" --fsid "$1" \
    "$home/monmap" --clobber
  ceph-mon --mkfs -i a --monmap "$home/monmap" --keyring "$home/keyring"
}

store() {
  local uuid
  uuid=$(cat /proc/sys/kernel/random/uuid)
  ceph-mon -i a || return 1
  timeout 60 ceph osd new "$uuid" 0 || return 1
  ceph-osd -i 0 --mkfs --osd-uuid "$uuid"
  ceph-osd -i 0 || return 1
  timeout 60 ceph osd crush add osd.0 1.0 root=default host=localhost
}

account() {
  timeout 120 radosgw-admin -n client.rgw user create --uid test --display-name test \
    --access-key $access --secret-key $secret || return 1
  # Buckets are made for this region.
  timeout 60 radosgw-admin -n client.rgw zonegroup get |
    sed 's/"api_name": "[^"]*"/"api_name": "us-east-1"/' >"$home/zonegroup.json"
  timeout 60 radosgw-admin -n client.rgw zonegroup set <"$home/zonegroup.json"
}

# Makes a bucket or an empty object; the first ones make the gateway's pools.
put() {
  curl -s -f -o /dev/null -X PUT --aws-sigv4 aws:amz:us-east-1:s3 --user "$access:$secret" \
    -H 'x-amz-content-sha256: UNSIGNED-PAYLOAD' -H 'Content-Length: 0' "http://127.0.0.1:$port/$1"
}

gateway() {
  setsid radosgw -f -n client.rgw >"$home/log/radosgw.out" 2>&1 </dev/null &
  echo $! >"$home/run/radosgw.pid"
  for _ in $(seq 300); do
    put warm && put warm/up && return 0
    sleep 0.2
  done
  tail -n 3 "$home"/log/radosgw.out >&2
  return 1
}

stop() {
  [ -n "${home:-}" ] || return 0
  end watchdog TERM
  end radosgw TERM
  end osd.0 TERM
  end mon.a TERM
  case $home in /tmp/kelvo_s3_*) rm -rf "$home" ;; esac
  rm -f "$env_file"
}

start() {
  stop
  install
  home=$(mktemp -d /tmp/kelvo_s3_XXXXXX)
  port=$(free_port)
  tls_port=$(free_port)
  export CEPH_CONF=$home/ceph.conf
  mkdir -p "$home"/{mon,osd,rgw,run,log}
  # Written before anything runs, so that a failed start can be stopped.
  printf '%s\n' "home=$home" "port=$port" "tls_port=$tls_port" "access=$access" \
    "secret=$secret" >"$env_file"
  setsid "$BASH" -c 'sleep "$1"; exec "$2" stop "$3"' watchdog \
    $((${KELVO_S3_MINUTES:-20} * 60)) "$(realpath "$0")" "$folder" >/dev/null 2>&1 </dev/null &
  echo $! >"$home/run/watchdog.pid"
  { configure "$(cat /proc/sys/kernel/random/uuid)" && store && account; } \
    >"$home/log/setup.out" 2>&1 || { tail -5 "$home/log/setup.out" >&2; stop; exit 1; }
  gateway || { stop; exit 1; }
  echo "S3 server on http://localhost:$port"
}

case $verb in
  start) start ;;
  kill) end radosgw KILL ;;
  resume) gateway ;;
  stop) stop ;;
  *) fail "start, kill, resume or stop" ;;
esac
