#!/usr/bin/env python3
"""Holds COUNT connections to 127.0.0.1:PORT for at most SECONDS: idle ones
that send nothing, or trickling ones that send a request line and then one
header byte a second. A connection the server closes is opened again.
Prints "ready" once all are open; stops on SIGTERM, saying how many it
opened in all."""
import asyncio
import signal
import sys

HEAD = b"X-Trickle: " + b"a" * 4000 + b"\r\n"


async def hold(port, mode, stop, counts, ready):
    while not stop.is_set():
        try:
            reader, writer = await asyncio.open_connection("127.0.0.1", port)
        except OSError:
            counts["failed"] += 1
            await asyncio.sleep(0.1)
            continue
        counts["opened"] += 1
        ready()
        try:
            if mode == "trickle":
                writer.write(b"POST /echo HTTP/1.1\r\nHost: x\r\n")
                for byte in HEAD:
                    if stop.is_set() or reader.at_eof():
                        break
                    writer.write(bytes([byte]))
                    await writer.drain()
                    await asyncio.sleep(1)
            else:
                await reader.read(1 << 16)
        except OSError:
            pass
        writer.close()


async def main(port, mode, count, seconds):
    stop = asyncio.Event()
    counts = {"opened": 0, "failed": 0}
    left = [count]

    def ready():
        left[0] -= 1
        if left[0] == 0:
            print("ready", flush=True)

    tasks = [asyncio.create_task(hold(port, mode, stop, counts, ready))
             for _ in range(count)]
    loop = asyncio.get_running_loop()
    loop.add_signal_handler(signal.SIGTERM, stop.set)
    try:
        await asyncio.wait_for(stop.wait(), seconds)
    except asyncio.TimeoutError:
        stop.set()
    for task in tasks:
        task.cancel()
    await asyncio.gather(*tasks, return_exceptions=True)
    print(f"opened {counts['opened']} failed {counts['failed']}", flush=True)


if __name__ == "__main__":
    port, mode, count, seconds = sys.argv[1:5]
    asyncio.run(main(int(port), mode, int(count), float(seconds)))
