#!/usr/bin/env bash
# Regenerates the demo voicemails, their transcripts and contacts.vcf in this folder.
# Needs espeak-ng and ffmpeg (Debian: apt-get install espeak-ng ffmpeg).
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")"

max_bytes=100000
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
rm -f msg-_*.caf msg-_*.txt   # so renamed or dropped messages don't linger

# encode CODEC [OPTIONS...]: uses name and rate of the calling voicemail().
encode() {
    ffmpeg -nostdin -v error -y -i "$tmp/speech.wav" -map_metadata -1 \
        -fflags +bitexact -flags:a +bitexact -ac 1 -ar "$rate" -c:a "$@" -f caf "$name.caf"
}

# voicemail NAME CODEC TRANSCRIPT(yes|no) TEXT
# The transcript is written from the very text that is spoken, so the two never drift apart.
voicemail() {
    local name=$1 codec=$2 transcript=$3 text=$4 rate=8000 extra=()
    # libopus can't encode at 8 kHz; 16 kHz wideband is what phones use for Opus anyway.
    [[ $codec == libopus ]] && rate=16000 extra=(-b:a 24k)
    espeak-ng -v en-us -s 160 -w "$tmp/speech.wav" "$text"
    # An ffmpeg built without libopus (or with an older caf muxer) can't write Opus; keep the set complete.
    encode "$codec" "${extra[@]}" || { echo "warning: $codec unavailable, using alac for $name" >&2; rate=8000; encode alac; }
    [[ $transcript == yes ]] && printf '%s\n' "$text" > "$name.txt"
    return 0
}

# AAC is deliberately absent: ffmpeg's caf muxer (5.1, Debian 12) rejects it with
# "muxing codec currently unsupported".
voicemail "msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07" alac yes \
    "Hey, it's Dan. Just landed, so I'm running late for dinner tomorrow. Call me back when you get this, okay?"
voicemail "msg-_TEL-_+15557654321-_09-Nov-2026-08-45-30" pcm_mulaw yes \
    "Hi, this is Priya from Northwind Dental, confirming your cleaning on Thursday at ten. Please call us back to confirm."
voicemail "msg-_TEL-_+442079460958-_27-Oct-2026-14-05-51" pcm_alaw yes \
    "Hello, Oliver Hughes here in London. The drawings are ready for your review. Ring me back when you have a moment. Cheers."
voicemail "msg-_TEL-_PRIVATE-_04-Nov-2026-11-20-03" pcm_s16le no \
    "Hello, this is the pharmacy. Your prescription is ready for pickup. Thank you."
voicemail "msg-_FT-_anna.berg@example.com-_02-Nov-2026-18-30-12" libopus yes \
    "Hi, it's Anna! I'm at the little café on Birch Street. Join me if you're free, or call me back later."
voicemail "msg-_FT-_+15552220199-_19-Oct-2026-19-12-44" adpcm_ima_qt yes \
    "Hey, Søren here. I tried you on FaceTime about the weekend hike. Give me a call back tonight if you can."
voicemail "msg-_TEL-_+15553108842-_12-Oct-2026-10-02-18" pcm_s16be no \
    "Hi, Maple Street Auto calling. Your car is ready. Please call us back."
voicemail "msg-_TEL-_+15550001111-_unknown-time" alac yes \
    "This is a reminder from the City Library. The book you reserved is waiting for you at the front desk."

# Numbers deliberately use other spellings than the file names, and Anna's e-mail another letter case.
# Lucía matches no recording; +15553108842 and +15550001111 have no card. CRLF line ends, as vCard requires.
sed 's/$/\r/' > contacts.vcf <<'VCF'
BEGIN:VCARD
VERSION:3.0
FN:Daniel Reyes
N:Reyes;Daniel;;;
NICKNAME:Dan
TEL;TYPE=CELL:(555) 123-4567
END:VCARD
BEGIN:VCARD
VERSION:4.0
FN:Priya Natarajan
N:Natarajan;Priya;;Dr.;
ORG:Northwind Family Dentistry;Patient Scheduling and Appointment Reminder
 s
TEL;TYPE=work:+1 555-765-4321
END:VCARD
BEGIN:VCARD
VERSION:3.0
FN:Oliver Hughes
N:Hughes;Oliver;;;
ORG:Hughes & Partners Architects
TEL;TYPE=WORK,VOICE:+44 20 7946 0958
END:VCARD
BEGIN:VCARD
VERSION:4.0
FN:Anna Berg
N:Berg;Anna;;;
EMAIL;TYPE=home:Anna.Berg@Example.com
NOTE:Usually reachable on FaceTime in the evenings\, prefers messages ove
 r calls during the day.
END:VCARD
BEGIN:VCARD
VERSION:2.1
N;CHARSET=UTF-8;ENCODING=QUOTED-PRINTABLE:Dahl;S=C3=B8ren;;;
FN;CHARSET=UTF-8;ENCODING=QUOTED-PRINTABLE:S=C3=B8ren Dahl
NICKNAME:Sunny
TEL;CELL:+1 (555) 222-0199
END:VCARD
BEGIN:VCARD
VERSION:3.0
FN:Lucía Fernández
N:Fernández;Lucía;;;
ORG:City Choir
TEL;TYPE=HOME:(555) 010-0142
EMAIL;TYPE=INTERNET:lucia.fernandez@example.org
END:VCARD
VCF

# Every recording must stay small enough to bundle and must decode cleanly.
for f in msg-_*.caf; do
    size=$(stat -c %s "$f")
    (( size < max_bytes )) || { echo "error: $f is $size bytes (limit $max_bytes)" >&2; exit 1; }
    ffmpeg -nostdin -v error -xerror -i "$f" -f null - || { echo "error: $f does not decode" >&2; exit 1; }
    printf '%-14s %6d B %5ss  %s\n' \
        "$(ffprobe -v error -select_streams a:0 -show_entries stream=codec_name -of csv=p=0 "$f")" \
        "$size" "$(ffprobe -v error -show_entries format=duration -of csv=p=0 "$f")" "$f"
done
