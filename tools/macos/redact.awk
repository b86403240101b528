# Replaces personal data in the lines that it reads. Run it with LC_ALL=C, so that every byte is a character.
#   awk -v names=FILE -f redact.awk
#
# Each line of FILE is KIND, REPLACEMENT and TEXT, with tabs between them. The kind says where the text is replaced:
#   path    unless a longer file name continues it
#   word    unless a letter, digit or underscore is next to it
#   folder  only directly after /Users/ or /home/, because a user may be called "a"
# Case is ignored. If a line begins with the control character 2, the text up to the next control character 2 was
# written by the report script. It is printed unchanged.

BEGIN {
    while ((getline name < names) > 0) add(name)
}

{
    ours = ""
    line = $0
    if (substr(line, 1, 1) == "\002") {
        end = index(substr(line, 2), "\002")
        ours = substr(line, 2, end - 1)
        line = substr(line, end + 2)
    }
    for (i = 1; i <= count; i++) line = without(line, i)
    # A replacement may contain a name, so all replacements are inserted last.
    for (i = 1; i <= count; i++) line = with(line, "\001" i "\001", replacement[i])
    print ours line
}

# The longest text comes first, because the path of a home folder contains the user's name.
function add(name,    parts, place) {
    split(name, parts, "\t")
    for (place = ++count; place > 1 && length(text[place - 1]) < length(parts[3]); place--) {
        kind[place] = kind[place - 1]
        replacement[place] = replacement[place - 1]
        text[place] = text[place - 1]
    }
    kind[place] = parts[1]
    replacement[place] = parts[2]
    text[place] = tolower(parts[3])
}

function without(line, i,    at, seen, rest) {
    seen = ""
    while ((at = index(tolower(line), text[i])) > 0) {
        seen = seen substr(line, 1, at - 1)
        rest = substr(line, at + length(text[i]))
        if (is_name(i, seen, rest)) {
            seen = seen "\001" i "\001"
            line = rest
        } else {
            seen = seen substr(line, at, 1)
            line = substr(line, at + 1)
        }
    }
    return seen line
}

function with(line, mark, word,    at) {
    while ((at = index(line, mark)) > 0) line = substr(line, 1, at - 1) word substr(line, at + length(mark))
    return line
}

function is_name(i, before, after,    following) {
    following = substr(after, 1, 1)
    if (is_letter(following)) return 0
    if (kind[i] == "path") return following != "-" && !(following == "." && is_letter(substr(after, 2, 1)))
    if (kind[i] == "folder") return tolower(before) ~ /\/(users|home)\/$/
    return !is_letter(substr(before, length(before)))
}

# Bytes above 127 count as letters.
function is_letter(byte) {
    return byte ~ /^[A-Za-z0-9_]$/ || byte > "\177"
}
