# The export script, as a user would write it:
# jq --slurp --raw-output --from-file export.jq PRIMARY SECONDARY
reduce .[].variables[] as $toggle ({}; .[$toggle.key] = $toggle.value)
| . as $values | keys[] | . as $key | $values[$key] as $value
| select(all($key, $value; . != "" and (contains(" ") | not)))
| "export \($key)=\($value)"
