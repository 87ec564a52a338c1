#!/bin/bash
# Runs inside the installed system, under its service manager: the hardened unit serves, is upgraded, takes a privileged
# port over a socket, and leaves nothing. Writes "all passed" when it is so.
set -euo pipefail
state=/var/lib/private/quillo-server
settings=/etc/quillo-server/quillo-server.env
unit=quillo-server.service

fail() {
    echo "FAILED: $*"
    journalctl --no-pager -u $unit -n 20 || true
    exit 1
}
process() { systemctl show -p MainPID --value $unit; }
field() { awk -v name="$1:" '$1 == name { print $2 }' "/proc/$(process)/status"; }
read -r -a packages <<<"$(sed -n 1p /root/versions)"
read -r -a newer <<<"$(sed -n 2p /root/versions)"
install() { apt-get install -y -qq --no-install-recommends "$@" >/root/apt.log 2>&1 || { cat /root/apt.log; fail "installing $*"; }; }

install "${packages[@]}"
[ "$(systemctl is-enabled $unit)" = disabled ] || fail "the unit is $(systemctl is-enabled $unit) after the installation"
! systemctl --quiet is-active $unit || fail "the unit runs after the installation"
systemctl enable --now --quiet $unit || fail "it did not start"
sh /root/ask.sh 48650 $state/authority.pem || fail "it did not answer"
echo "the hardened unit serves and recognises"

[ "$(field CapEff)$(field CapBnd)" = 00000000000000000000000000000000 ] || fail "it has capabilities: $(field CapEff) $(field CapBnd)"
[ "$(field NoNewPrivs) $(field Seccomp)" = "1 2" ] || fail "it is not confined: $(field NoNewPrivs) $(field Seccomp)"
[ "$(field Uid)" -ge 61184 ] || fail "its account is $(field Uid)"
[ "$(stat -c '%a %u' $state)" = "700 $(field Uid)" ] || fail "its state is $(stat -c '%a %u' $state)"
[ -z "$(find $state -perm /077 ! -name authority.pem)" ] || fail "others can read $(find $state -perm /077)"
within() { nsenter --mount --target "$(process)" "$@"; }
for path in /usr /etc /var/lib /home /root; do
    ! within touch "$path/quillo-test" 2>/dev/null || fail "it could write to $path"
done
[ -z "$(within find /home /root -mindepth 1)" ] || fail "it sees homes"
echo "it has no capability, no privilege, no other files than its own"

# SQLite's files of a root must not lock the service out.
accounts() { quillo-server accounts list --data $state >/dev/null || fail "the administrator cannot see the accounts"; }
accounts
systemctl stop $unit
accounts
systemctl start $unit
sh /root/ask.sh 48650 $state/authority.pem || fail "it did not answer after the administrator looked at the accounts"
[ -z "$(find $state/ ! -uid "$(field Uid)")" ] || fail "not the service's: $(find $state/ ! -uid "$(field Uid)")"

kill -KILL "$(process)"
sh /root/ask.sh 48650 $state/authority.pem || fail "it was not started again after its end"
echo 'QUILLO_SERVER_OPTIONS=--no-such-option' >>$settings
! systemctl restart $unit || timeout 20 sh -c "until systemctl is-failed --quiet $unit; do :; done" || fail "it ignores its settings"
[ "$(systemctl show -p NRestarts --value $unit)" = 0 ] || fail "wrong options are tried again and again"
echo 'QUILLO_SERVER_OPTIONS=--listen 127.0.0.1:48651 --host dictation.example.org' >>$settings
systemctl reset-failed $unit
systemctl restart $unit || fail "it did not start with options"
sh /root/ask.sh 48651 $state/authority.pem || fail "it does not listen where its settings say"
echo "it comes back after a crash, not after wrong options, and follows its settings"

before=$(process)
install "${newer[@]}"
[ "$(process)" != "$before" ] && [ "$(process)" != 0 ] || fail "the upgrade did not restart it"
sh /root/ask.sh 48651 $state/authority.pem || fail "it did not answer after the upgrade"
systemctl disable --now --quiet $unit
sed -i '/^QUILLO_SERVER_OPTIONS=/d' $settings
mkdir -p /etc/systemd/system/quillo-server.socket.d
printf '[Socket]\nListenStream=\nListenStream=443\n' >/etc/systemd/system/quillo-server.socket.d/port.conf
systemctl daemon-reload
systemctl enable --now --quiet quillo-server.socket || fail "the socket did not open"
sh /root/ask.sh 443 $state/authority.pem || fail "it was not started by a connection"
echo "it is restarted by an upgrade, and started by a connection to a port below 1024"

rm -r /etc/systemd/system/quillo-server.socket.d
apt-get purge -y -qq quillo quillo-server >/root/apt.log 2>&1 || { cat /root/apt.log; fail "purging"; }
! systemctl --quiet is-active quillo-server.socket || fail "the socket is open after the removal"
rest=$(find /etc /usr /var/lib -xdev -name '*quillo*' ! -path '/etc/systemd/system/*quillo-test*' ! -name quillo-test)
[ -z "$rest" ] || fail "left behind: $rest"
echo "nothing of it is left after a purge"
echo "all passed"
