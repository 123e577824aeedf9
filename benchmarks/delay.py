"""A slow line on loopback: a proxy that holds every byte for 50 ms in each direction."""

import asyncio
import threading

ONE_WAY_SECONDS = 0.050
ROUND_TRIP_MS = 2000 * ONE_WAY_SECONDS
LONGEST_SILENCE_SECONDS = 0.6


class SlowLine:
    """Passes connections from each port to another port, on a thread of its own.

    A connection on loopback is accepted at once; the round trip that TCP's handshake takes on a
    real line is added to the first bytes. A connection that falls silent is closed, as servers do.
    """

    def __init__(self, ports):
        self.ports = ports
        self.loop = asyncio.new_event_loop()
        self.thread = threading.Thread(target=self.loop.run_forever)

    def __enter__(self):
        for port, target in self.ports.items():
            self.loop.run_until_complete(self._listen(port, target))
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.loop.call_soon_threadsafe(self.loop.stop)
        self.thread.join()
        self.loop.run_until_complete(self._end())
        self.loop.close()

    @staticmethod
    async def _end():
        left = asyncio.all_tasks() - {asyncio.current_task()}
        for task in left:
            task.cancel()
        await asyncio.gather(*left, return_exceptions=True)

    async def _listen(self, port, target):
        async def accepted(reader, writer):
            connected = self.loop.time() + 2 * ONE_WAY_SECONDS
            far_reader, far_writer = await asyncio.open_connection("127.0.0.1", target)
            await asyncio.gather(
                pass_on(reader, far_writer, connected), pass_on(far_reader, writer, connected)
            )

        await asyncio.start_server(accepted, ["127.0.0.1", "::1"], port)


async def pass_on(reader, writer, earliest):
    """Passes bytes on in order, each ONE_WAY_SECONDS after it came or could have come."""
    loop = asyncio.get_running_loop()
    due = 0
    while data := await piece(reader):
        came = max(loop.time(), earliest)
        due = max(came + ONE_WAY_SECONDS, due + 1e-6)  # Equal times would lose the order.
        loop.call_at(due, writer.write, data)
    await asyncio.sleep(ONE_WAY_SECONDS)
    writer.close()


async def piece(reader):
    """The next bytes, or none once the connection has ended or is to end."""
    try:
        return await asyncio.wait_for(reader.read(65536), LONGEST_SILENCE_SECONDS)
    except (ConnectionError, asyncio.TimeoutError):
        return b""
