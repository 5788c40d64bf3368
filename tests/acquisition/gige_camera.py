"""Usage: gige_camera.py GENICAM.xml. What the simulator of Aravis cannot do: a GigE Vision camera on
127.0.0.1 with frame numbers of 64 bits from 65530 on and time stamps 1/128 s apart, whose images
have an encoder's count behind them, 3 ticks a frame, and whose ranges come with intensities. Sample i
of frame k is k + i."""
import os
import socket
import struct
import sys
import threading

WIDTH, HEIGHT, CHUNK_ID, COORD3D_C16 = 64, 4, 0x1234, 0x011000b8
HOST_PORT, PACKET_SIZE, PIXEL_FORMAT, ACQUISITION = 0xd00, 0xd04, 0x128, 0x124
LEADER, TRAILER, PAYLOAD, PART = 1, 2, 3, 7
XML = open(sys.argv[1], "rb").read()
memory = bytearray(0x20000)


def put(address, value):
    struct.pack_into(">I", memory, address, value)


def get(address):
    return struct.unpack_from(">I", memory, address)[0]


def samples(frame, kind):
    count = WIDTH * HEIGHT
    return struct.pack(f"<{count}{kind}", *((frame + i) % 256 for i in range(count)))


def chunked(frame):
    payload = (samples(frame, "B") + struct.pack(">IIqII", 1, WIDTH * HEIGHT, 3 * frame, CHUNK_ID, 8))
    leader = struct.pack(">HHQIIIIIHH", 0, 0x4001, 7812500 * frame, get(PIXEL_FORMAT), WIDTH, HEIGHT,
                         0, 0, 0, 0)
    return [(LEADER, leader), (PAYLOAD, payload), (TRAILER, struct.pack(">HHI", 0, 0x4001, HEIGHT))]


def in_parts(frame):
    leader, packets, offset = struct.pack(">HHQ", 0, 0xa, 7812500 * frame), [], 0
    # Data type, component, pixels.
    for i, (kind, component, pixels, data) in enumerate((
            (1, 1, 0x01080001, samples(frame, "B")), (5, 4, COORD3D_C16, samples(frame, "H")))):
        leader += struct.pack(">HHIIIIHHIIIIII", kind, 0, len(data), pixels, 0, 0, component, 0, WIDTH,
                              HEIGHT, 0, 0, 0, 0)
        packets.append((PART, struct.pack(">BBHI", i, 0, 0, offset) + data))
        offset += len(data)
    return [(LEADER, leader), *packets, (TRAILER, struct.pack(">HHI", 0, 0xa, HEIGHT))]


def stream():
    frame = 65529
    while not pause.wait(0.005):
        if get(ACQUISITION):
            frame += 1
            packets = (in_parts if get(PIXEL_FORMAT) == COORD3D_C16 else chunked)(frame)
            for i, (kind, data) in enumerate(packets):
                heading = struct.pack(">HHIQI", 0, 0, 1 << 31 | kind << 24 | 2, frame, i)
                control.sendto(heading + data, ("127.0.0.1", get(HOST_PORT)))


def answer(command, data):
    if command == 0x02:  # discovery
        return bytes(memory[:0xf8])
    if command == 0x80:  # read registers
        return b"".join(memory[at:at + 4] for at, in struct.iter_unpack(">I", data))
    if command == 0x82:  # write registers
        for address, value in struct.iter_unpack(">II", data):
            put(address, value)
            if address == PACKET_SIZE and value >> 31:  # it is to be tried out
                control.sendto(bytes((value & 0xffff) - 28), ("127.0.0.1", get(HOST_PORT)))
        return struct.pack(">HH", 0, len(data) // 8)
    if command == 0x84:  # read memory
        address, size = struct.unpack(">II", data)
        return data[:4] + bytes(memory[address:address + size])
    return b""


for address, text in ((0x48, b"Test"), (0xd8, b"Test2"), (0x10000, XML),
                      (0x200, b"Local:camera.xml;10000;%x" % len(XML))):
    memory[address:address + len(text)] = text
for address, value in ((0x24, 0x7f000001), (0x600, 1), (0x904, 1), (0x938, 3000), (0x940, 1000000000),
                       (PACKET_SIZE, 1500), (0x100, WIDTH), (0x104, HEIGHT), (0x118, 2048), (0x11c, 2048), (0x12c, 1),
                       (0x138, 5000), (0x1014, 1000), (PIXEL_FORMAT, 0x01080001)):
    put(address, value)
pause = threading.Event()
control = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
control.bind(("127.0.0.1", 3956))
threading.Thread(target=stream, daemon=True).start()
print("ready", flush=True)
threading.Thread(target=lambda: (sys.stdin.read(), os._exit(0)), daemon=True).start()
while True:
    packet, peer = control.recvfrom(2048)
    _, command, size, number = struct.unpack_from(">HHHH", packet)
    data = answer(command, packet[8:8 + size])
    control.sendto(struct.pack(">HHHH", 0, command + 1, len(data), number) + data, peer)
