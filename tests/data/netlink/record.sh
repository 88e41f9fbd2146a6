#!/bin/sh
# Records what the kernel answers about a network made for it, as root, with iproute2 and python3. See README.md.
set -eu
cd "$(dirname "$0")"

unshare -n sh -eu <<'INSIDE'
ip link add name qos0 index 10 type veth peer name qos1 index 11
ip link add name qos2 index 12 numtxqueues 4 type veth peer name qos3 index 13
for device in qos0 qos1 qos2 qos3; do
    echo 1 > /proc/sys/net/ipv6/conf/$device/disable_ipv6
    ip link set dev $device up
done
while read -r device network; do
    ip address add $network.1/24 dev $device
    ip neighbour add $network.2 lladdr 02:00:00:00:00:02 dev $device
done <<'NETWORKS'
qos0 192.0.2
qos2 198.51.100
qos3 203.0.113
NETWORKS

tc qdisc add dev qos0 root handle 1: htb
tc class add dev qos0 parent 1: classid 1:1 htb rate 10mbit
for minor in 17 16 15 14 13 12 11 10; do # not in their order
    tc class add dev qos0 parent 1:1 classid 1:$minor htb rate 1mbit ceil 1mbit
    tc qdisc add dev qos0 parent 1:$minor pfifo limit 10
done
tc class change dev qos0 parent 1:1 classid 1:10 htb rate 2kbit ceil 2kbit # so that packets stay queued
tc qdisc replace dev qos0 parent 1:17 handle 20: htb default 1              # a discipline with a class of its own
tc class add dev qos0 parent 20: classid 20:1 htb rate 10mbit
tc qdisc add dev qos2 root handle 2: mq
tc qdisc add dev qos3 root handle 3: tbf rate 1mbit burst 10k limit 20k

python3 - <<'PYTHON'
import socket, time
def send(address, priority, size, count):
    udp = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    udp.setsockopt(socket.SOL_SOCKET, socket.SO_PRIORITY, priority)
    for packet in range(count):
        udp.sendto(bytes(size - 42), address)
for index in range(8):
    send(("192.0.2.2", 9), 0x10010 + index, 100 + 100 * index, 14 + 2 * index)
for port in range(9, 29):
    send(("198.51.100.2", port), 0, 500, 3)
send(("203.0.113.2", 9), 0, 1000, 30)
time.sleep(1)
PYTHON

python3 - <<'PYTHON'
import socket, struct
RTM_GETLINK, RTM_NEWQDISC, RTM_GETQDISC, RTM_GETTCLASS = 18, 36, 38, 42
def messages(part):
    while part:
        length, kind = struct.unpack_from("=IH", part)
        yield kind, part[:length]
        part = part[(length + 3) & ~3:]
def record(kind, index, file):
    kernel = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE)
    what = struct.pack("=BxHiII", 0, 0, index, 0, 0) if kind == RTM_GETLINK else struct.pack("=4xiIII", index, 0, 0, 0)
    kernel.send(struct.pack("=IHHII", 16 + len(what), kind, 0x301, 1, 0) + what)  # a request for a dump
    answer = b""
    while not any(kind == 3 for kind, message in messages(answer)):  # the end
        answer += kernel.recv(1 << 18)
    open(file, "wb").write(answer)
    return answer
record(RTM_GETLINK, 0, "links.bin")
for kind, message in messages(record(RTM_GETQDISC, 0, "disciplines.bin")):
    if kind == RTM_NEWQDISC and message[28:32] == b"\xff" * 4:  # its parent is the root
        index, = struct.unpack_from("=i", message, 20)
        record(RTM_GETTCLASS, index, "classes-%d.bin" % index)
PYTHON
for device in qos0 qos1 qos2 qos3; do
    echo "# $device"
    tc -s qdisc show dev $device root
    tc -s class show dev $device
done > tc.txt
INSIDE
