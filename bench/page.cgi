#!/bin/sh
# The page by CGI, as a user would serve it: from a directory below that of the two schemas.
page=$(jq --slurp --raw-output --from-file page.jq ../primary ../secondary)
printf 'Content-Type: text/html\r\nConnection: close\r\n'
printf 'Content-Length: %d\r\n\r\n%s' "${#page}" "$page"
