#!/usr/bin/env bash
# Two sshd on loopback stand for two machines; one of them dies in the middle of a scan. The result must be that of
# one scan.
#
#   tools/long/two-machines.sh BIN REPOSITORY     BIN: the folder of brantle, brantle-report and brantle-parallel
set -euo pipefail
bin=$(cd "$1" && pwd)
repository=$(cd "$2" && pwd)
work=$(mktemp -d)
pids=()
finish() {
  kill "${pids[@]}" 2>/dev/null || true
  rm -rf "$work"
}
trap finish EXIT
mkdir -p "$work/one" "$work/two" "$work/several"
ssh-keygen -q -t ed25519 -N '' -f "$work/key"
ssh-keygen -q -t ed25519 -N '' -f "$work/host"
[ "$(id -u)" -ne 0 ] || mkdir -p /run/sshd
# machine NAME PORT: a server of its own process group, so that it dies with its sessions.
machine() {
  printf '%s\n' "HostKey $work/host" "AuthorizedKeysFile $work/key.pub" "PidFile $work/$1.pid" "ListenAddress 127.0.0.1:$2" \
    'PermitRootLogin prohibit-password' 'StrictModes no' 'UsePAM no' 'MaxStartups 100' >"$work/$1.conf"
  setsid /usr/sbin/sshd -D -e -f "$work/$1.conf" 2>"$work/$1.log" &
  pids+=("$!")
  echo "/usr/bin/ssh -p $2 -i $work/key -o StrictHostKeyChecking=no -o UserKnownHostsFile=$work/known -o LogLevel=ERROR 127.0.0.1" \
    >>"$work/machines"
}
machine first 22201
machine second 22202
for _ in $(seq 100); do
  [ -s "$work/first.pid" ] && [ -s "$work/second.pid" ] && break
  sleep 0.1
done

"$bin/brantle" "$repository" "$work/one"
(
  sleep "${DIES_AFTER:-3}"
  kill -- "-${pids[1]}"
  pkill -P "${pids[1]}" || true
  echo "the second machine has died"
) &
"$bin/brantle-parallel" "$repository" "$work/several" -j 2 --sshloginfile "$work/machines"
wait $!
diff -r "$work/one" "$work/several"
echo "two machines: the same as one scan"
