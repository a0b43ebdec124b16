#!/usr/bin/env python3
"""Writes the inputs that fuzzing begins with: valid ones, made from protocol-buffer text.

usage: MakeSeeds.py <fuzz target> <folder>

Each function in `targets` yields the inputs of the target of its name, in the form that its source describes. A target
without a function begins with its committed inputs alone.
"""

import pathlib
import subprocess
import sys

root = pathlib.Path(__file__).resolve().parent.parent.parent
schema = root / "Rpc/libProtocolX/schema"
support = root / "Tests/Support"


def encoded(folder, file, message, text):
    """The bytes of a message that is given as text."""
    return subprocess.run(["protoc", f"--proto_path={folder}", f"--encode={message}", file],
                          input=text.encode(), stdout=subprocess.PIPE, check=True).stdout


# --- requests ----------------------------------------------------------------------------------------------


def request(operation, fields=""):
    text = f"operation: OPERATION_{operation} {operation} {{ {fields} }}"
    return encoded(schema, "BrantelStorageApiMessages.proto", "BrantelStorageApi.Request", text)


def at(time):
    return f"{{ nanoseconds: {time % (1 << 64)} }}"


def append(time, value="x", key="image", duration=10, handle=1):
    return request("TrackWriter_Append", f"""object_handle: {handle} chunk {{ timecode {at(time)} duration {at(duration)}
        properties {{ items {{ key: "width" value: "{time}" }} }}
        data {{ items {{ key: "{key}" value: "{value}" }} items {{ key: "thumbnail" value: "t" }} }} }}""")


def create(track=1, size=65536):
    return request("TrackStorage_CreateTrack", f"infoIn {{ id: {track % (1 << 64)} size: {size} }}")


def properties(operation, track, **items):
    list = " ".join(f'items {{ key: "{key}" value: "{value}" }}' for key, value in items.items())
    return request(operation, f"trackId: {track} properties {{ {list} }}")


def setting(track, key, value):
    return properties("TrackStorage_SetTrackProperties", track, **{key: value})


def writer(track=1):
    return request("TrackWriter_Constructor", f"trackId: {track}")


def protect(time, duration, track=1):
    return request("TrackStorage_Protect", f"trackId: {track} timecode {at(time)} duration {at(duration)}")


def everyOperation():
    """A track's life; each operation at least once."""
    yield create()
    yield writer()
    yield from (append(time) for time in (0, 10, 20, 35))
    yield request("TrackReader_Constructor", "trackId: 1")
    for operation in ("GetChunk", "GetNextChunk", "GetPreviousChunk"):
        yield request(f"TrackReader_{operation}", f'object_handle: 2 timecode {at(15)} keys {{ keys: "image" }}')
        yield request(f"TrackReader_{operation}", f"object_handle: 2 timecode {at(10)} keys {{ }}")
    for operation in ("NextTimePoint", "PreviousTimePoint"):
        yield request(f"TrackReader_{operation}", f"object_handle: 2 timecode {at(20)}")
    yield request("TrackReader_Wait", f"object_handle: 2 timecode {at(40)} timeout: 1")
    yield request("TrackReader_GetTrackId", "object_handle: 2")
    yield request("TrackWriter_GetTrackId", "object_handle: 1")
    yield setting(1, "width", "720")
    yield properties("TrackStorage_RemoveTrackProperties", 1, width="")
    yield protect(10, 10)
    for operation in ("GetNumberOfChunks", "GetAccumulatedDuration"):
        yield request(f"TrackStorage_{operation}", f"trackId: 1 in {at(0)} out {at(30)}")
    for operation in ("GetTrackProperties", "GetTrackSize", "GetBeginningOfTrack", "GetEndOfTrack"):
        yield request(f"TrackStorage_{operation}", "trackId: 1")
    for operation in ("GetActiveWorkers", "GetRemainingSpace", "ListProtections", "GetOngoingCommands", "ListTracks"):
        yield request(f"TrackStorage_{operation}")
    yield request("TrackStorage_GetTrackInfos", "trackIds { ids: 1 ids: 2 }")
    yield request("TrackStorage_GetWorkerInfos", "workerIds { ids: 1 ids: 2 ids: 9 }")
    yield request("TrackStorage_GetCommandInfo", "commandId: 1")
    yield request("TrackStorage_GrowTrack", "infoIn { id: 1 size: 99999 }")
    yield request("TrackStorage_ClearTrack", "trackId: 1")
    yield request("TrackStorage_Unprotect", "protectionId: 1")
    yield request("TrackReader_Destructor", "object_handle: 2")
    yield request("TrackWriter_Destructor", "object_handle: 1")
    yield request("TrackStorage_DeleteTrack", "trackId: 1")


def laps(retention):
    """A full track that goes on, around a protection."""
    yield create(size=40000)
    yield setting(1, "storage.retention", retention)
    yield writer()
    for number in range(24):
        yield append(number * 10, "0123456789" * 3, "long")
        if number == 4:
            yield protect(10, 15)
        if number == 20:
            yield request("TrackStorage_Unprotect", "protectionId: 1")


def severalTracks():
    """Tracks beside each other, one of them written by a second writer after the first."""
    yield create(1)
    yield create(0)
    yield create(7, 1048576)
    for track in (1, 2, 7):
        yield writer(track)
        yield setting(track, "storage.durability", ("always", "interval:200ms", "os")[track % 3])
        yield append(track, handle=min(track, 3))
    yield request("TrackWriter_Destructor", "object_handle: 2")
    yield writer(2)
    yield append(9, handle=4)
    yield request("TrackStorage_ClearTrack", "trackId: 2")
    yield append(3, handle=4)
    yield request("TrackStorage_DeleteTrack", "trackId: 7")
    yield request("TrackWriter_Destructor", "object_handle: 3")
    yield request("TrackStorage_DeleteTrack", "trackId: 7")


def errors():
    """What is refused."""
    yield create(-1)
    yield create(1, 5)
    yield create(1, 1 << 40)
    yield append(1)
    yield writer(3)
    yield create()
    yield writer()
    yield writer()
    yield append(5)
    yield append(5)
    yield append(-1)
    yield append(9, duration=-1)
    yield append(9, key="thumbnail")
    yield append(9, "x" * 400, "long")
    yield setting(1, "storage.unknown", "1")
    yield setting(1, "storage.retention", "never")
    yield protect(-1, 5)
    yield request("TrackStorage_Unprotect", "protectionId: 5")
    yield request("TrackStorage_GrowTrack", "infoIn { id: 1 size: 5 }")
    yield b"\x08\x01"


def ServeRequestFuzz():
    for session in (everyOperation(), laps("loop"), laps("stop"), severalTracks(), errors()):
        yield b"".join(len(bytes).to_bytes(2, "little") + bytes for bytes in session)


# --- responses ---------------------------------------------------------------------------------------------

chunk = """chunk { timecode { nanoseconds: 5 } duration { nanoseconds: 6 }
    properties { items { key: "codec" value: "jpeg" } } data { items { key: "image" value: "data" } } } result: true"""
track = "infoOut { id: 1 size: 2 commandId: 3 }"
point = "{ nanoseconds: 9 }"
responseParts = {
    "TrackStorage_GetTrackProperties": 'properties { items { key: "title" value: "a" } }',
    "TrackStorage_GetNumberOfChunks": "nbChunks: 5",
    "TrackReader_NextTimePoint": f"nextTimePoint {point} result: true",
    "TrackStorage_DeleteTrack": track,
    "TrackStorage_GetTrackSize": "trackSize: 5",
    "TrackWriter_Append": "",
    "TrackStorage_GetTrackInfos": f"trackInfos {{ infos {{ trackId: 1 tpIn {point} tpOut {point} size: 4 capacity: 5 }} }}",
    "TrackReader_Destructor": "",
    "TrackReader_GetChunk": chunk,
    "TrackStorage_RemoveTrackProperties": "",
    "TrackStorage_GetActiveWorkers": "workerIds { ids: 1 ids: 2 } trackIds { ids: 3 ids: 4 }",
    "TrackWriter_Destructor": "",
    "TrackReader_GetTrackId": "result: 5",
    "TrackStorage_GrowTrack": track,
    "TrackWriter_Constructor": "object_handle: 2",
    "TrackStorage_GetCommandInfo": "commandInfo { type: ONGOING progression: 5 }",
    "TrackStorage_GetRemainingSpace": "remainingSpace: 5",
    "TrackReader_PreviousTimePoint": f"previousTimePoint {point} result: true",
    "TrackStorage_GetBeginningOfTrack": f"timecode {point}",
    "TrackReader_Constructor": "object_handle: 1",
    "TrackReader_GetPreviousChunk": chunk,
    "TrackStorage_ClearTrack": "",
    "TrackStorage_GetAccumulatedDuration": f"duration {point}",
    "TrackStorage_Protect": "protectionId: 5",
    "TrackStorage_GetWorkerInfos": """workerInfos { infos { type: READER workerId: 1 trackId: 2 connectionId: 3
        throughput: 4 clientIpV4Address: "127.0.0.1" } infos { type: WRITER } }""",
    "TrackReader_GetNextChunk": chunk,
    "TrackWriter_GetTrackId": "result: 5",
    "TrackReader_Wait": "result: true",
    "TrackStorage_Unprotect": "",
    "TrackStorage_GetEndOfTrack": f"timecode {point}",
    "TrackStorage_ListProtections": f"protectionInfos {{ infos {{ handle: 1 trackId: 2 tcIn {point} tcOut {point} }} }}",
    "TrackStorage_CreateTrack": track,
    "TrackStorage_GetOngoingCommands": "commandIds { ids: 1 }",
    "TrackStorage_SetTrackProperties": "",
    "TrackStorage_ListTracks": "list { trackIds: 1 trackIds: 2 }",
}


def ResponseFuzz():
    parts = [f"{name} {{ {fields} }}" for name, fields in responseParts.items()]
    empty = [f"{name} {{ }}" for name in responseParts]
    texts = ["is_success: true", "is_success: false", 'is_success: false exception: "Track 7 does not exist"']
    texts += ["is_success: true " + part for part in parts]
    texts += [f"{beginning} {' '.join(parts)}" for beginning in texts[:3]]
    texts += ["is_success: true " + " ".join(empty)]
    for text in texts:
        yield encoded(schema, "BrantelStorageApiMessages.proto", "BrantelStorageApi.Response", text)


# --- frames ------------------------------------------------------------------------------------------------


def stretches(data):
    """The bytes as operations of a stream: runs of one byte in short form."""
    plain = b""
    while data:
        run = len(data) - len(data.lstrip(data[:1]))
        if run >= 8 or len(plain) == 32:
            yield from literal(plain)
            plain = b""
        if run >= 8:
            run = min(run, 0xFFFF)
            yield b"\x02" + run.to_bytes(2, "little") + data[:1]
            data = data[run:]
        else:
            plain += data[:1]
            data = data[1:]
    yield from literal(plain)


def literal(data):
    if data:
        yield bytes([(len(data) - 1) << 3 | 4]) + data


def frame(message, piece):
    """A frame, cut behind each `piece` bytes."""
    stream = b"\x01"
    for begin in range(0, len(message), piece):
        stream += b"".join(stretches(message[begin:begin + piece])) + b"\x00"
    return stream


def everyField():
    long = "l" * 5000
    scalars = """int32_field: -5 int64_field: 6 uint32_field: 7 uint64_field: 8 sint32_field: -9 sint64_field: -10
        fixed32_field: 11 fixed64_field: 12 sfixed32_field: -13 sfixed64_field: -14 float_field: 1.5 double_field: 2.5
        bool_field: true string_field: "text" bytes_field: "bytes" colour_field: BLUE"""
    nested = f'child {{ child {{ bytes_field: "{long}" int32_field: 5 }} children {{ string_field: "{long}" }} }}'
    groups = f"""Inner {{ inner_bytes: "{long}" inner_child {{ bytes_field: "in" }} Innermost {{ number: 5 }} }}
        Repeated {{ data: "{long}" place {{ x: 1 y: 2 }} }}"""
    lists = f"""plain_numbers: 1 plain_numbers: 2 packed_numbers: [1, 2, 3] packed_fixed: [{", ".join(["7"] * 600)}]
        packed_colours: [RED, GREEN] plain_doubles: 1 texts: "a" texts: "{long}" blocks: "{long}" blocks: ""
        points {{ x: 1 y: 2 name: "p" }} points {{ x: 3 y: 4 name: "{long}" }}"""
    maps = f"""blocks_by_name {{ key: "a" value: "{long}" }} blocks_by_name {{ key: "b" value: "c" }}
        children_by_number {{ key: 5 value {{ bytes_field: "{long}" }} }}"""
    others = f"""chosen_child {{ chosen_text: "{long}" }} far_field: "{long}"
        [Brantel.Tests.extended_bytes]: "{long}" [Brantel.Tests.extended_child] {{ bytes_field: "{long}" }}"""
    for text in ("", scalars, nested, groups, lists, maps, others, f'bytes_field: "{long * 10}"'):
        yield 0, encoded(support, "EveryField.proto", "Brantel.Tests.EveryField", text)
    # Not a whole character, in a short and a long text, and the required fields of a point missing.
    yield 0, b"\x72\x02\xc3\x2d" + b"\x72\x88\x27" + b"\xc3" * 5000
    yield 0, b"\x92\x01\x02\x08\x02"


def everyField3():
    long = "l" * 5000
    for text in (f'text: "a" data: "b" present_text: "{long}" texts: "c" texts: "{long}" numbers: [1, 2, 3]',
                 f'child {{ texts_by_name {{ key: "k" value: "{long}" }} }} chosen_child {{ text: "{long}" }}'):
        yield 1, encoded(support, "EveryField3.proto", "Brantel.Tests.EveryField3", text)
    yield 1, b"\x0a\x02\xc3\x2d"
    yield 1, b"\x0a\x88\x27" + b"\xc3" * 5000


def FrameReaderFuzz():
    alone, long, lengthOfShortStreams = 0x80, 0x40, 12288
    for type, message in [*everyField(), *everyField3()]:
        kind = type | (long if len(message) > lengthOfShortStreams else 0)
        for piece in (7, 3000, 1 << 20):
            if len(message) // piece < 60:
                yield bytes([kind]) + frame(message, piece)
                yield bytes([kind | alone]) + frame(message, piece)
    # Several messages in one piece, a damaged one among them; a length over the limit; half a frame.
    yield b"\x00" + (b"\x01" + b"\x0c\x08\x05") * 3 + b"\x01\x0c\x0f\xff" + b"\x01\x0c\x08\x06"
    yield b"\x00" + b"\x24\xff\xff\xff\xff\x0f"
    yield b"\x00" + b"\x0c\x20\x08"


# --- stores ------------------------------------------------------------------------------------------------


def LocalStoreFuzz():
    yield b"\x00"
    yield b"\x01"
    for store in (0, 1):
        for file in range(16):
            # A bit, a page of zeros, a cut and a loss; in a header, in chunks and in the last page.
            for offset in (40, 4096, 4500, 8300):
                yield bytes([store, 0, file]) + offset.to_bytes(2, "little") + b"\x10"
            yield bytes([store, 2, file, 0, 16, 0, 16, 0])
            yield bytes([store, 3, file, 0, 20])
            yield bytes([store, 4, file])
            # Numbers changed under right checksums: of a header, of a footer, of a chunk.
            for offset, checksum in ((60, 7), (8192 + 80, 7), (4096 + 56, 8)):
                begin = offset // 4096 * 4096
                yield (bytes([store, 1 + 9 * 3, file]) + offset.to_bytes(2, "little") + b"\xff\xff\xff\x7f"
                       + bytes([checksum, file]) + begin.to_bytes(2, "little"))
        # One file in the place of another.
        yield bytes([store, 5, 4, 5, 0])
        yield bytes([store, 6, 6, 0, 16, 7, 0, 16, 0, 16])


def StoredBytesFuzz():
    yield b""
    for record in range(24):
        for offset in (1, 2, 10, 14, 22):
            yield bytes([7 * 3, record, offset]) + b"\xff" * 4
        yield bytes([1, record, 5])
        yield bytes([3, record])
        yield bytes([4, record, record + 1])
        yield bytes([5, record, 20])
    # Chunks behind those of the track: track, segment, time point, duration, ordinal, front, parts.
    for segment in range(12):
        yield bytes([6, 0, 0, segment, 200, 20, 30, 8, 0, 9]) + b"\x01" + bytes(8) + b"\x00"
        yield bytes([6, 0, 0, segment, 1, 1, 1, 1, 1, 20]) + b"\x01\x01" + bytes(18) + b"\x04data\x01"


# --- the tool ----------------------------------------------------------------------------------------------


def segment(marker, content):
    return b"\xff" + bytes([marker]) + (len(content) + 2).to_bytes(2, "big") + content


def picture(text):
    coded = text + b"\xff\x00" + text + b"\xff\xd0" + text + b"\xff\xd7\xff\x00"
    return b"\xff\xd8" + segment(0xe0, b"JFIF") + segment(0xda, b"scan") + coded + b"\xff\xd9"


def MjpegSplitterFuzz():
    withThumbnail = b"\xff\xd8" + segment(0xe1, picture(b"small")) + segment(0xda, b"") + b"x\xff\xff\xd9"
    progressive = (b"\xff\xd8" + segment(0xc2, b"frame") + segment(0xda, b"one") + b"abc" + segment(0xc4, b"tables")
                   + segment(0xda, b"two") + b"def\xff\xd9")
    movie = picture(b"one") + withThumbnail + progressive + picture(b"")
    for limit in (5, 255):
        for part in (0, 6, 255):
            yield bytes([limit, part]) + movie
    yield b"\xff\x02" + movie[:-1]
    yield b"\xff\x02" + movie + b"\x00"
    yield b"\xff\x02\xff\xd8\xff\xe0\x00\x01"
    yield b"\xff\x02\xff\xd8\xff\xd8"
    yield b"\xff\x02\xff\xd8\xff\x01\xff\xd0\xff\x02"


def number(value, size=8):
    return (value % (1 << 8 * size)).to_bytes(size, "little")


def chunkRecord(time, text):
    """A chunk record with one property and one data block."""
    entry = number(1) + b"k" + number(len(text)) + text
    content = number(1) + number(time) + number(10) + number(1) + entry + number(1) + entry
    return number(8 + len(content)) + content


def exportFile(times, head=b"\x01", entries=None, tail=b""):
    """An export file without checksums, which the target makes right."""
    header = b"BRTRKEXP" + number(1, 4) + number(58, 4) + number(7) + number(4096) + number(1) + number(1, 4) + b"a"
    header += number(1, 4) + b"b" + bytes(8)
    body, places = header, []
    for time in times:
        record = chunkRecord(time, b"data %d" % time)
        places.append((time, len(body)))
        body += bytes(8) + b"CREC" + bytes(4) + number(len(record)) + record
    index = len(body)
    listed = places if entries is None else entries
    body += bytes(8) + b"INDX" + bytes(4) + number(len(listed))
    body += b"".join(number(time) + number(place) for time, place in listed)
    trailer = b"BRTRKEND" + number(index) + number(len(listed)) + number(times[0] if times else -1)
    return head + body + trailer + number(times[-1] if times else -1) + bytes(16) + tail


def ExportReaderFuzz():
    yield exportFile([])
    yield exportFile([1, 2, 3])
    yield exportFile([1, 2, 3], head=b"\x00")
    yield exportFile([3, 2])
    yield exportFile([1, 2], entries=[(1, 58)])
    yield exportFile([1], tail=b"x")
    for size in (30, 60, 80, 150, 240, 300):
        yield exportFile([1, 2])[:size]
    yield exportFile([1]).replace(b"CREC" + bytes(4) + number(82), b"CREC" + bytes(4) + number(1 << 40))
    yield exportFile([1]).replace(number(1) + b"k", number(1 << 60) + b"k")


def CommandLineFuzz():
    """The first byte is the place of the check in the target's list."""
    texts = {
        0: "now start-1h end+10s -90s 1h30m 2024-05-01T12:30:00.25Z 2024-05-01T12:30:00+02:00 2024-05-01 1714566600 "
           "1714566600123456789 12.5 12:500000000 0 1677-09-21T00:12:44Z",
        1: "-10m..now start.. ..end 2024-05-01+1h [12.5_13) start+1h..start+2h",
        2: "0s 90s 1h30m 1.5s 250ms 2d12h 1w 9223372036s 1us 1ns",
        3: "4096 500M 2TiB 1.5GiB 512B 8EiB 0.5kB",
        4: "8Mbit/s 1.5MB/s 25MiB/s 9kbit",
        5: "25 29.97 30000/1001 1/1000000000 0.000000001",
        6: '2\na\v12.5\vx|t\n{"t":12.5}|t\n{"a":{"t":1},"t":"5"}|1\n'.replace("\v", " "),
        7: "unix:/run/brantel/storage.sock tcp:localhost:4711 tcp:[::1]:1",
    }
    for kind, words in texts.items():
        for word in words.split("|" if kind == 6 else None):
            yield bytes([kind]) + word.encode()
    lines = """ls --json --watch -i 2s
        info 7 --time-format seconds
        track create --size 10GiB --retention loop --durability interval:200ms -p title=door --no-wait
        track grow 7 +1GiB
        track clear 7 -y
        track delete 7 8 --dry-run
        prop set 7 title=door
        prop rm 7 title
        protect add 7 -10m..now
        protect rm 3 -y
        worker ls
        command watch
        ping -n 3 --timeout 5s
        record --track 7 --format mjpeg --fps 25 --start now --retry -
        record --new --size 1GiB --format lines --time-field 2 --key text file.txt
        play 7 -1h..now --realtime --rate 2 --keys image,thumbnail -o out
        get 7 end --next --format json
        tail 7 -f -n 5
        export 7 camera.brantel --since-last -f
        import --new camera.brantel
        gaps 7 --min 1s
        graph 7 --width 100
        du
        bench append --writers 4 --chunk-size 256KiB --duration 10s
        check /var/lib/brantel
        recover damaged.brantel whole.brantel
        completion bash
        --help
        ls --help
        --version"""
    for line in lines.splitlines():
        yield bytes([8]) + "\n".join(line.split()).encode()


def ConfigurationFuzz():
    """A file, variables without their common beginning, and arguments, a zero byte between them."""
    example = (root / "Packaging/storage.toml").read_text()
    settings = [line[1:] for line in example.splitlines() if line.startswith("#") and " = " in line and line[1] != " "]
    yield "\n".join(settings).encode()
    for line in settings:
        key, _, value = line.partition(" = ")
        bare = value.strip('[]"').replace('", "', ",")
        yield line.encode()
        yield b"\0" + f"{key.upper().replace('-', '_')}={bare}".encode()
        yield b"\0\0" + f"--{key}={bare.split(',')[0]}".encode()
    yield b'engine = "memory"\nlisten = "tcp:*:0"\n\0LOG_LEVEL=debug\nALLOW=user:0=admin,group:0=reader'
    yield b'capacity = 1048576\nkeep-free = "1_000"\nmax-depth = 0x10\n\0\0--http\noff\n--ready-fd=9'
    yield b"\0LISTEN=unix:/a,tcp:[::1]:5,tcp:[a]:1\0"
    for words in (b"check\n/tmp/a", b"recover\na\nb", b"--help", b"--version", b"--check-config",
                  b"--print-example-config", b"--listen=unix:/a\n--listen\ntcp:[::1]:5\n--insecure-listen"):
        yield b"\0\0" + words
    yield b"a = 1\n[b]\nc = [1, {d = '''e'''}]\nf = 1979-05-27T07:32:00Z"


targets = {target.__name__: target
           for target in (ServeRequestFuzz, ResponseFuzz, FrameReaderFuzz, LocalStoreFuzz, StoredBytesFuzz,
                         MjpegSplitterFuzz, ExportReaderFuzz, CommandLineFuzz, ConfigurationFuzz)}


def main():
    if len(sys.argv) != 3:
        print(__doc__, file=sys.stderr)
        return 2
    target, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    folder.mkdir(parents=True, exist_ok=True)
    for number, bytes in enumerate(targets.get(target, lambda: ())()):
        (folder / f"seed{number}").write_bytes(bytes)
    return 0


if __name__ == "__main__":
    sys.exit(main())
