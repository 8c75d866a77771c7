#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""online.py [APN]: keeps the device online, tells what changes, and answers each message that comes."""
import asyncio, logging, sys

import kelo


async def main(apn: str) -> None:
    async with kelo.Modem(apn=apn, ping_target="8.8.8.8") as modem:
        watching = asyncio.create_task(watch(modem))
        async for message in modem.messages():  # once the loop asks for the next one, this one counts as kept
            print(f"{message.sender}: {message.text}")
            try:
                await modem.send_sms_async(message.sender, f"{modem.status.operator} hears you")
            except (kelo.KeloError, ValueError) as error:
                print(f"no answer to {message.sender}: {error}")
        await watching


async def watch(modem: kelo.Modem) -> None:
    async for event in modem.events():
        print(event.now if isinstance(event, kelo.StatusChange) else event)


logging.basicConfig(level=logging.INFO)  # what the library says
try:
    asyncio.run(main(*sys.argv[1:2] or [""]))
except KeyboardInterrupt:
    pass
