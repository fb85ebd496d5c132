#!/usr/bin/python3
"""Parses vCard (.vcf) and iCalendar (.ics) files with independent parsers.

Prints one JSON line per file: {"file", "problem"}, the problem null when the
file parses (one VCARD with FN and N, or one VCALENDAR with exactly one VEVENT
holding UID and DTSTAMP).
"""
import json
import sys

import icalendar
import vobject


def check_vcard(path):
    with open(path, encoding="utf-8", newline="") as handle:
        cards = list(vobject.readComponents(handle.read(), validate=True))
    if len(cards) != 1 or cards[0].name != "VCARD":
        return "not one VCARD"
    card = cards[0]
    if "fn" not in card.contents or "n" not in card.contents:
        return "FN or N missing"
    return None


def check_icalendar(path):
    with open(path, "rb") as handle:
        calendar = icalendar.Calendar.from_ical(handle.read())
    events = [c for c in calendar.walk() if c.name == "VEVENT"]
    if len(events) != 1:
        return "not one VEVENT"
    for required in ("UID", "DTSTAMP"):
        if required not in events[0]:
            return required + " missing"
    start = events[0].get("DTSTART")
    if start is not None:
        start.dt  # decodes the value
    return None


def main():
    for path in sys.argv[1:]:
        try:
            reason = check_vcard(path) if path.endswith(".vcf") else check_icalendar(path)
        except Exception as error:  # noqa: BLE001 - the parser's complaint is the finding
            reason = repr(error)
        print(json.dumps({"file": path, "problem": reason}))


if __name__ == "__main__":
    main()
