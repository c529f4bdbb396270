#!/usr/bin/env bash
# Proves the Debian packages in a bare Debian 12 root of their own: install, scan, report, share, Java host, a C++ user
# of the components, remove. Needs root and mmdebstrap; apt is set up in the root as it is here.
#
#   tools/long/bare-root.sh PACKAGES FIXTURE_TREE CONSUMER SAMPLE
#     folders of *.deb, of files to scan, of a C++ user's project, of the built sample host and its bridge
set -euo pipefail
packages=$(cd "$1" && pwd)
tree=$(cd "$2" && pwd)
consumer=$(cd "$3" && pwd)
sample=$(cd "$4" && pwd)
root=$(mktemp -d)
share=
finish() {
  [ -z "$share" ] || kill -- "-$share" 2>/dev/null || true
  umount "$root/dev/pts" "$root/proc" 2>/dev/null || true
  rm -rf "$root"
}
trap finish EXIT
mmdebstrap --quiet --variant=minbase --include=ca-certificates bookworm "$root" \
  --customize-hook='cp -r /etc/apt/sources.list* /etc/apt/*.gpg /etc/apt/trusted.gpg.d "$1/etc/apt/" 2>/dev/null || true'
cp /etc/resolv.conf "$root/etc/" 2>/dev/null || true
mount -t proc proc "$root/proc"
mount -t devpts devpts "$root/dev/pts" 2>/dev/null || true
mkdir -p "$root/packages" "$root/tree" "$root/out"
cp "$packages"/*.deb "$root/packages/"
cp -r "$tree/." "$root/tree/"
cp -r "$consumer" "$root/consumer"
mkdir "$root/sample"
cp "$sample/brantle-sample.jar" "$sample/libbrantle_sample_bridge.so" "$root/sample/"
inside() { chroot "$root" env DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 "$@"; }
step() { echo "bare-root: $*"; }

inside apt-get -q update >/dev/null
inside sh -c 'apt-get -qq install -y --no-install-recommends /packages/*.deb' >/dev/null
step "installed: $(inside dpkg-query -W -f '${binary:Package} ' brantle brantle-smb libbrantle-java libtessivator-dev)"

inside brantle /tree /out
records=$(grep -c '<Executable>' "$root/out/info.xml")
inside brantle-report html /out -o /out/report.html
inside brantle-report diff /out /out
[ "$(inside brantle-report csv /out | wc -l)" -eq $((records + 1)) ]
step "scanned and reported: $records records"

# A share of the tree, served from inside the root on loopback.
inside apt-get -qq install -y --no-install-recommends samba >/dev/null
mkdir -p "$root/samba" "$root/out-share"
printf '%s\n' '[global]' 'server role = standalone server' 'interfaces = 127.0.0.53/8' 'bind interfaces only = yes' \
  'map to guest = bad user' 'disable netbios = yes' 'private dir = /samba' 'lock directory = /samba' 'state directory = /samba' \
  'cache directory = /samba' 'pid directory = /samba' 'ncalrpc dir = /samba' 'log file = /samba/log' '[tree]' 'path = /tree' 'guest ok = yes' >"$root/samba/smb.conf"
setsid chroot "$root" smbd --foreground --no-process-group --configfile=/samba/smb.conf >/dev/null 2>&1 &
share=$!
for _ in $(seq 50); do (exec 3<>/dev/tcp/127.0.0.53/445) 2>/dev/null && break; sleep 0.2; done
inside brantle '\\127.0.0.53\tree' /out-share
[ "$(grep -c '<Executable>' "$root/out-share/info.xml")" -eq "$records" ]
step "the same over a share"

inside apt-get -qq install -y --no-install-recommends openjdk-17-jre-headless >/dev/null
library=$(inside dpkg -L libbrantle-java | grep '/libbrantle\.so$')
inside java -cp /usr/share/java/brantle.jar:/sample/brantle-sample.jar com.kestal.tamb.brantle.sample.SampleHost \
  /sample/libbrantle_sample_bridge.so "$library" /out-java /tree
[ "$(grep -c '<Executable>' "$root/out-java/1/info.xml")" -eq "$records" ]
step "the sample Java host has run"

inside apt-get -qq install -y --no-install-recommends g++ cmake make >/dev/null
inside sh -c 'cmake -S /consumer -B /built >/dev/null && cmake --build /built >/dev/null && cd /built && ctest --output-on-failure' | tail -n 3
step "a C++ user has built and run"

inside apt-get -qq purge -y brantle brantle-smb libbrantle-java libtessivator-dev >/dev/null
left=$(find "$root/usr" \( -name '*brantle*' -o -name '*tessivator*' \) -print)
[ -z "$left" ] || { echo "bare-root: left behind: $left" >&2; exit 1; }
step "removed without a trace"
