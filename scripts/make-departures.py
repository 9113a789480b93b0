#!/usr/bin/env python3
"""Writes host/data/departures.csv: every 40th of the flights in host/data, with its scheduled and its actual departure as
local times with their zones. A flight's zone is that in which most of its origin's state lies, with daylight saving time
from 1 April 2001 on, where the state has it."""
import csv
import datetime
import os

data = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "host", "data")
hours = {}
for offset, states in {
    -5: "CT DC DE FL GA IN KY MA MD ME MI NC NH NJ NY OH PA RI SC VA VT WV",
    -6: "AL AR IA IL KS LA MN MO MS ND NE OK SD TN TX WI",
    -7: "AZ CO ID MT NM UT WY",
    -8: "CA NV OR WA",
    -9: "AK",
    -10: "HI",
    -4: "PR VI",
}.items():
    hours.update(dict.fromkeys(states.split(), offset))
no_saving = {"AZ", "HI", "PR", "VI", "IN"}
saving_from = datetime.datetime(2001, 4, 1, 2)

with open(os.path.join(data, "airports.csv"), newline="") as file:
    state_of = {row["iata"]: row["state"] for row in csv.DictReader(file)}


def local(moment, state):
    offset = hours[state] + (state not in no_saving and moment >= saving_from)
    return f"{moment:%Y-%m-%d %H:%M}{offset:+03d}:00"


with open(os.path.join(data, "flights-100k.csv"), newline="") as file, open(
    os.path.join(data, "departures.csv"), "w", newline=""
) as out:
    writer = csv.writer(out, lineterminator="\n")
    writer.writerow(["scheduled", "departed", "origin", "destination", "distance"])
    for number, row in enumerate(csv.DictReader(file)):
        state = state_of.get(row["origin"])
        if number % 40 != 0 or state not in hours:
            continue
        scheduled = datetime.datetime.strptime(row["date"], "%Y-%m-%d %H:%M")
        departed = scheduled + datetime.timedelta(minutes=int(row["delay"]))
        writer.writerow([local(scheduled, state), local(departed, state), row["origin"], row["destination"],
                         row["distance"]])
