#!/bin/sh
# The page by CGI, as a user would serve it: needs PAGE_JQ, PRIMARY and SECONDARY in the environment.
page=$(jq --slurp --raw-output --from-file "$PAGE_JQ" "$PRIMARY" "$SECONDARY")
printf 'Content-Type: text/html\r\nConnection: close\r\nContent-Length: %d\r\n\r\n%s' "${#page}" "$page"
