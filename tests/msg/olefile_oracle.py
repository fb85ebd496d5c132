#!/usr/bin/python3
"""Independent reading of .msg files with olefile, for the corpus tests.

For each file given, prints one JSON line: the subject and plain body as the
file stores them (UTF-16 stream, else the 8-bit one read as Windows-1252).

Under "complete", what a reader that loses nothing should find (MS-OXMSG,
MS-OXPROPS): strings in either string type, 8-bit ones in the message's code
page (PidTagMessageCodepage, PidTagInternetCodepage for bodies, then the RTF
body's \ansicpg, then Windows-1252) through Python's codecs; the subject,
the sender (name, SMTP address), recipients by PidTagRecipientType, the plain
body, the HTML body (PidTagHtml) and every attachment's name and the base64
of its bytes (embedded messages, method 5, by name only). The
RTF body is decompressed (MS-OXRTFCP) here only for its header: "rtfOnly" says
that the file's text is in the RTF alone.
"""
import base64
import json
import re
import struct
import sys

import olefile


def text(ole, storage, prop):
    for suffix, encoding in (("001F", "utf-16-le"), ("001E", "cp1252")):
        path = storage + ["__substg1.0_" + prop + suffix]
        if ole.exists(path):
            data = ole.openstream(path).read()
            if data:
                return data.decode(encoding, errors="replace")
    return None


def method(ole, storage):
    path = storage + ["__properties_version1.0"]
    if not ole.exists(path):
        return None
    data = ole.openstream(path).read()[8:]
    for offset in range(0, len(data) - 15, 16):
        kind, ident = struct.unpack_from("<HH", data, offset)
        if kind == 0x0003 and ident == 0x3705:
            return struct.unpack_from("<I", data, offset + 8)[0]
    return None


RTF_DICTIONARY = (b"{\\rtf1\\ansi\\mac\\deff0\\deftab720{\\fonttbl;}{\\f0\\fnil \\froman \\fswiss "
                  b"\\fmodern \\fscript \\fdecor MS Sans SerifSymbolArialTimes New RomanCourier"
                  b"{\\colortbl\\red0\\green0\\blue0\r\n\\par \\pard\\plain\\f0\\fs20\\b\\i\\u\\tab\\tx")


def decompress_rtf(data):
    """MS-OXRTFCP: the raw RTF of a compressed-RTF stream, or None."""
    if len(data) < 16:
        return None
    _, raw_size, magic, _ = struct.unpack_from("<IIII", data)
    if magic == 0x414C454D:  # "MELA": stored
        return data[16:16 + raw_size]
    if magic != 0x75465A4C:  # "LZFu"
        return None
    window = bytearray(4096)
    window[:len(RTF_DICTIONARY)] = RTF_DICTIONARY
    write = len(RTF_DICTIONARY)
    out = bytearray()
    pos = 16
    while pos < len(data) and len(out) < raw_size:
        control = data[pos]
        pos += 1
        for bit in range(8):
            if pos >= len(data) or len(out) >= raw_size:
                break
            if control & (1 << bit):
                if pos + 2 > len(data):
                    return bytes(out)
                token = (data[pos] << 8) | data[pos + 1]
                pos += 2
                offset, length = token >> 4, (token & 0xF) + 2
                if offset == write:
                    return bytes(out)
                for i in range(length):
                    byte = window[(offset + i) % 4096]
                    out.append(byte)
                    window[write] = byte
                    write = (write + 1) % 4096
            else:
                out.append(data[pos])
                window[write] = data[pos]
                write = (write + 1) % 4096
                pos += 1
    return bytes(out)


def codec_for(code_page):
    if not code_page or code_page in (1200, 1201):
        return None
    names = {20127: "ascii", 65001: "utf-8", 20866: "koi8_r", 21866: "koi8_u", 50220: "iso2022_jp",
             50221: "iso2022_jp", 50222: "iso2022_jp", 51932: "euc_jp", 51949: "euc_kr", 54936: "gb18030",
             936: "gbk", 10000: "mac_roman"}
    if code_page in names:
        return names[code_page]
    if 28591 <= code_page <= 28605:
        return "iso8859_%d" % (code_page - 28590)
    return "cp%d" % code_page


def decode_8bit(data, code_pages):
    for code_page in code_pages:
        codec = codec_for(code_page)
        if not codec:
            continue
        try:
            return data.decode(codec)
        except (LookupError, UnicodeDecodeError):
            continue
    # Windows-1252, its five unmapped bytes standing for themselves.
    return "".join(bytes([b]).decode("cp1252", errors="ignore") or chr(b) for b in data)


CONTROLS = re.compile("[\x00-\x08\x0b\x0c\x0e-\x1f\x7f-\x9f]")


def keep_whole(text):
    if text is None:
        return None
    text = CONTROLS.sub("", text.split("\x00", 1)[0]).strip()
    return text or None


def one_line(text):
    if text is None:
        return None
    out = ""
    for piece in re.split("[\r\n]+", text):
        if out and piece and not out.endswith(" ") and piece[0] not in " \t":
            out += " "
        out += piece
    return keep_whole(out)


class Message:
    def __init__(self, ole, storage, header_size, outer=None):
        self.ole, self.storage = ole, storage
        stream = self.stream(storage + ["__properties_version1.0"]) or b""
        self.fixed = fixed_properties(stream, header_size)
        rtf = self.stream(storage + ["__substg1.0_10090102"])
        self.rtf = decompress_rtf(rtf) if rtf else None
        match = re.search(rb"\\ansicpg(\d+)", self.rtf[:4096]) if self.rtf else None
        self.rtf_cp = int(match.group(1)) if match else 0
        self.message_cp = self.fixed.get((0x0003, 0x3FFD), 0)
        self.internet_cp = self.fixed.get((0x0003, 0x3FDE), 0)
        if outer:
            self.message_cp = self.message_cp or outer.message_cp
            self.internet_cp = self.internet_cp or outer.internet_cp
            self.rtf_cp = self.rtf_cp or outer.rtf_cp

    def stream(self, path):
        if self.ole.exists(path) and self.ole.get_type(path) == olefile.STGTY_STREAM:
            return self.ole.openstream(path).read()
        return None

    def string(self, prop, storage=None, body=False):
        storage = self.storage if storage is None else storage
        for suffix in ("001F", "001E"):
            data = self.stream(storage + ["__substg1.0_%04X%s" % (prop, suffix)])
            if not data:
                continue
            if suffix == "001F":
                text = data[:len(data) // 2 * 2].decode("utf-16-le", errors="replace")
            elif body:
                text = decode_8bit(data, [self.internet_cp, self.message_cp, self.rtf_cp])
            else:
                text = decode_8bit(data, [self.message_cp, self.internet_cp, self.rtf_cp])
            return keep_whole(text)
        return None


def fixed_properties(stream, header_size):
    values = {}
    for offset in range(header_size, len(stream) - 15, 16):
        kind, ident = struct.unpack_from("<HH", stream, offset)
        if kind in (0x0003, 0x0040):
            values.setdefault((kind, ident), struct.unpack_from("<I" if kind == 3 else "<Q", stream, offset + 8)[0])
    return values


def looks_like_address(text):
    return bool(text) and re.fullmatch(r"[^@\s<>()\[\],;:\"]+@[A-Za-z0-9.-]+\.[A-Za-z]{2,}", text) is not None


def is_smtp(kind):
    return kind is not None and kind.upper() == "SMTP"


def complete_reading(ole):
    message = Message(ole, [], 32)
    result = {"subject": one_line(message.string(0x0037)), "rtfOnly": False}
    name = message.string(0x0C1A) or message.string(0x0042)
    address = message.string(0x5D01) or message.string(0x5D02)
    if not address and is_smtp(message.string(0x0C1E)):
        address = message.string(0x0C1F)
    if not address and is_smtp(message.string(0x0064)):
        address = message.string(0x0065)
    result["from"] = {"name": name, "address": address}
    recipients = {"To": [], "CC": [], "BCC": []}
    attachments = []
    for entry in sorted(ole.listdir(streams=False, storages=True)):
        if len(entry) != 1:
            continue
        lower = entry[0].lower()
        if lower.startswith("__recip"):
            fixed = fixed_properties(message.stream(entry + ["__properties_version1.0"]) or b"", 8)
            kind = fixed.get((0x0003, 0x0C15), 1) & 0xFF
            address = message.string(0x39FE, entry)
            if not address:
                stored, address_type = message.string(0x3003, entry), message.string(0x3002, entry)
                if is_smtp(address_type) or (address_type is None and looks_like_address(stored)):
                    address = stored
            recipients[{2: "CC", 3: "BCC"}.get(kind, "To")].append(
                {"name": message.string(0x3001, entry), "address": address})
        elif lower.startswith("__attach"):
            name = message.string(0x3707, entry) or message.string(0x3704, entry) or message.string(0x3001, entry)
            item = {"name": name, "embedded": method(ole, entry) == 5}
            data = message.stream(entry + ["__substg1.0_37010102"])
            if data and not item["embedded"]:
                item["base64"] = base64.b64encode(data).decode()
            attachments.append(item)
    result["recipients"] = recipients
    result["attachments"] = attachments
    result["body"] = message.string(0x1000, body=True)
    html = message.stream(["__substg1.0_10130102"])
    if html:
        html = decode_8bit(html, [message.internet_cp, message.message_cp, 65001]).split("\x00", 1)[0] or None
    result["html"] = html or message.string(0x1013, body=True)
    result["rtfOnly"] = message.rtf is not None and result["body"] is None
    result["rtfHtml"] = message.rtf is not None and b"\\fromhtml1" in message.rtf[:4096]
    return result


def main():
    for name in sys.argv[1:]:
        result = {"file": name}
        try:
            ole = olefile.OleFileIO(name)
        except Exception as error:  # noqa: BLE001 - report and go on
            result["error"] = str(error)
            print(json.dumps(result))
            continue
        result["subject"] = text(ole, [], "0037")
        result["body"] = text(ole, [], "1000")
        try:
            result["complete"] = complete_reading(ole)
        except Exception as error:  # noqa: BLE001 - reported, and the test fails on it
            result["complete"] = {"error": "%s: %s" % (type(error).__name__, error)}
        print(json.dumps(result))


if __name__ == "__main__":
    main()
