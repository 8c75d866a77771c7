# SPDX-License-Identifier: MIT
# The headers' plain comments as Doxygen wants them: "/**" ahead of what they are about, "/**<" behind it. One with an
# empty line behind it is about all that follows and of no single thing: it stays as it is.
{ line[NR] = $0 }

function mark(i, at,   start, behind, end) {
    if (line[i] ~ /^#(if|ifn?def|else|endif)/ || substr(line[i], at) ~ /^\/\* (SPDX|----)/)
        return "/*"
    behind = line[i] ~ /[^ ]/ && substr(line[i], 1, at - 1) ~ /[^ ]/
    for (end = i; end <= NR && line[end] !~ /\*\//; end++) { }
    if (substr(line[i], at) ~ /^\/\* kelo\/[a-z]+\.h: /)
        return "/** @file"
    if (!behind && line[end + 1] ~ /^ *$/)
        return "/*"
    return behind ? "/**<" : "/**"
}

END {
    for (i = 1; i <= NR; i++) {
        out = ""
        rest = line[i]
        while (rest != "") {
            if (!inside) {
                at = index(rest, "/*")
                if (at == 0) { out = out rest; break }
                out = out substr(rest, 1, at - 1) mark(i, length(line[i]) - length(rest) + at)
                rest = substr(rest, at + 2)
                inside = 1
                continue
            }
            at = index(rest, "*/")
            text = at == 0 ? rest : substr(rest, 1, at - 1)
            gsub(/[<>#@\\&%]/, "\\\\&", text)
            if (out ~ /@file$/)
                sub(/: /, " ", text)
            out = out text
            if (at == 0) break
            out = out "*/"
            rest = substr(rest, at + 2)
            inside = 0
        }
        print out
    }
}
