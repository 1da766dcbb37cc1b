# The configuration page: jq --slurp --raw-output --from-file page.jq PRIMARY SECONDARY
def escape: gsub("&"; "&amp;") | gsub("\""; "&quot;") | gsub("<"; "&lt;") | gsub(">"; "&gt;");
reduce .[].variables[] as $toggle ({}; .[$toggle.key] = $toggle.value)
| . as $values
| [keys[] | . as $key | ($key | escape) as $name
   | "\($name): <input type=\"text\" name=\"\($name)\" value=\"\($values[$key] | escape)\"><br>"]
| "<form action=\"/update\" method=\"post\">\(add)"
  + "<input type=\"submit\" value=\"Submit\"><br><br>"
  + "<input type=\"submit\" formaction=\"/reboot\" value=\"Reboot\"></form>"
