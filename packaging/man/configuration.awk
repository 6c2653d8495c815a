# Turns docs/configuration.md into the AsciiDoc source of vex.cfg(5). AsciiDoc reads Markdown's headings, lists and
# code blocks as they are. Left are the head of the page, tables, which become lists of terms, and words in backquotes,
# in which nothing else counts as mark-up.

BEGIN { FS = " *[|] *" }

function marked(text,    done) {
    while (match(text, /`[^`]+`/)) {
        done = done substr(text, 1, RSTART - 1) "`+" substr(text, RSTART + 1, RLENGTH - 2) "+`"
        text = substr(text, RSTART + RLENGTH)
    }
    return done text
}

NR == 1 {
    print "= vex.cfg(5)\n:doctype: manpage\n"
    print "== NAME\n\nvex.cfg - configuration of vex-agent\n\n== DESCRIPTION"
    next
}
/^```/ { fenced = !fenced }
fenced || /^    / || !/^[|]/ { columns = 0; print (fenced || /^    /) ? $0 : marked($0); next }
/^[|]-/ { next }
!columns { # the row of headings
    columns = NF - 1
    for (i = 2; i <= columns; ++i)
        heading[i] = tolower($i)
    next
}
{ # the first column is the term, the last one the text, those between are told by their headings
    print marked($2) "::"
    for (i = 3; i < columns; ++i)
        printf "%s: %s%s", heading[i], marked($i), (i < columns - 1 ? "; " : ". +\n")
    print marked($columns)
}

END { print "\n== SEE ALSO\n\n*vex-agent*(8), *vex-client*(1)" }
