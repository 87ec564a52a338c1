#!/bin/sh
# Asks the server on the loopback port $1, whose authority is $2, who it is, for an account, and what was said in
# /root/speech.raw (16 kHz). Runs inside the installed system.
set -eu
ask() { curl --silent --show-error --fail-with-body --cacert "$authority" --retry 60 --retry-connrefused --retry-delay 1 --retry-max-time 60 "$@"; }
authority=$2
server=https://127.0.0.1:$1

# It may be starting only now. The authority is there from the first answer on; the plain port needs none.
curl --silent --fail --retry 60 --retry-all-errors --retry-delay 1 --retry-max-time 60 "http://127.0.0.1:$1/health" | grep -q '"ok"'
token=$(ask "$server/api/v1/auth/anonymous" --json '{"device_id":"install-test"}' | sed -n 's/.*"access_token": *"\([^"]*\)".*/\1/p')
[ -n "$token" ] || { echo "no account was made" >&2; exit 1; }
ask "$server/api/v1/auth/me" -H "Authorization: Bearer $token" | grep -q '"is_anonymous": *true'
if [ -f /root/speech.raw ]; then
    {
        printf 'RIFF\377\377\377\377WAVEfmt \020\0\0\0\001\0\001\0\200\076\0\0\0\175\0\0\002\0\020\0data\377\377\377\377'
        cat /root/speech.raw
    } >/tmp/speech.wav
    text=$(ask "$server/api/v1/transcription/file" -H "Authorization: Bearer $token" -F file=@/tmp/speech.wav -F language=en)
    rm /tmp/speech.wav
    echo "$text" | grep -qi 'go forward' || { echo "recognised: $text" >&2; exit 1; }
fi
