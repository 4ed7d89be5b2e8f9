#!/usr/bin/python3
"""Reference client for bench/exchange: the same command exchange as the
board link (the operating-hours request "O", answered "R" and four hex
digits), written with python3-serial. Prints "<exchanges/s> <cpu us/exchange>"."""
import resource
import sys
import time

import serial


def main():
    device, count = sys.argv[1], int(sys.argv[2])
    port = serial.Serial(device, 19200, bytesize=8, parity=serial.PARITY_EVEN,
                         stopbits=1, timeout=0.5)
    port.reset_input_buffer()

    def exchange():
        port.write(b"O\n")
        while True:
            line = port.readline()
            if not line:
                raise SystemExit("timeout waiting for a reply")
            line = line.rstrip(b"\r\n")
            if line == b"OK" or line == b"N" or line.startswith(b"R"):
                return line.startswith(b"R") and len(line) == 5

    for _ in range(20):
        exchange()
    cpu0 = resource.getrusage(resource.RUSAGE_SELF)
    t0 = time.monotonic()
    for _ in range(count):
        if not exchange():
            raise SystemExit("exchange refused")
    elapsed = time.monotonic() - t0
    cpu1 = resource.getrusage(resource.RUSAGE_SELF)
    cpu = (cpu1.ru_utime - cpu0.ru_utime) + (cpu1.ru_stime - cpu0.ru_stime)
    print(f"{count / elapsed:.1f} {cpu * 1e6 / count:.1f}")


if __name__ == "__main__":
    main()
