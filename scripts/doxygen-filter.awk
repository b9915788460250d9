# Doxygen input filter for the public headers (docs/Doxyfile.in). In a protected section, the data members
# (m_...) and the helpers named in lower camel case serve the library's own subclasses, not its users: they
# are shown to Doxygen as private, so the reference leaves them out. What a user's subclass implements or
# calls (Entry(), constructors) stays. A changed access is written in front of the declaration itself, so
# every line keeps its number.
#   awk -f scripts/doxygen-filter.awk Header.h

# 1 when the declaration that starts this line is an internal: a member variable m_..., or a function whose
# name begins with a lower-case letter (operators excepted).
function internal(line,    name) {
    sub(/[ \t]*\/\/.*$/, "", line)
    if (match(line, /[A-Za-z_~][A-Za-z0-9_]*[ \t]*\(/)) {
        name = substr(line, RSTART, RLENGTH)
        sub(/[ \t]*\($/, "", name)
        return name ~ /^[a-z]/ && name !~ /^operator/
    }
    return line ~ /[ \t*&]m_[A-Za-z0-9_]*[ \t]*(\[[^]]*\])?[ \t]*(=[^;]*)?;/
}

/^(public|protected|private):/ {
    in_protected = ($0 ~ /^protected:/)
    shown = "protected"
    at_start = 1
    print
    next
}
/^};/ { in_protected = 0 }
{
    code = $0
    sub(/^[ \t]*\/\/.*$/, "", code)
    if (!in_protected || code ~ /^[ \t]*$/) { print; next }
    line = $0
    if (at_start) {
        wanted = internal(code) ? "private" : "protected"
        if (wanted != shown) { line = wanted ": " line; shown = wanted }
    }
    sub(/[ \t]*\/\/.*$/, "", code)
    at_start = (code ~ /[;}][ \t]*$/)
    print line
}
