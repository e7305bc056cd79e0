# The shell-side filter of a domain's removal: the same element rule as mailrig's (drop D and
# ...@D on the key and on every value element), list separators merged, kept elements joined
# with ", ". Used by the benchmarks as the floor a rewrite in C++ is compared with.
function keep(e) { return !(e == D || (length(e) > length(D) + 1 && substr(e, length(e) - length(D)) == "@" D)) }
{
  p = match($0, /[ \t]/)
  if (!p) { print "invalid key/value '" $0 "'" > "/dev/stderr"; next }
  key = substr($0, 1, p - 1); val = substr($0, p + 1)
  gsub(/^[ \t]+|[ \t]+$/, "", val)
  if (!keep(key) || val == "") next
  n = split(val, el, /[, \t\n\v\f\r]+/); out = ""
  for (i = 1; i <= n; i++) if (el[i] != "" && keep(el[i])) out = out (out == "" ? "" : ", ") el[i]
  if (out != "") print key " " out
}
