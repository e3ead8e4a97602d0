# modla(3) from modla.h: headings and comments become text, in which indented lines stand alone; what is declared below
# the first heading stays as it is.
function escape(text) {
    gsub(/\\/, "\\e", text)
    gsub(/-/, "\\-", text)
    if (text ~ /^[.']/) text = "\\&" text
    return text
}
function into(wanted) {
    if (kind != wanted) print wanted == "code" ? ".PP\n.nf" : kind == "code" ? ".fi\n.PP" : ".PP"
    kind = wanted
}
BEGIN {
    print ".TH MODLA 3 \"\" modLA \"Library Functions\""
    print ".SH NAME\nmodla \\- exact linear algebra modulo p on a host's own matrices"
    print ".SH SYNOPSIS\n.nf\n#include <modla.h>\n.PP"
    print "gcc \\-m32 \\fIprogram.c\\fR $(pkg\\-config \\-\\-cflags \\-\\-libs modla)\n.fi\n.SH DESCRIPTION"
    kind = "text"
}
/^\/\* ---- / {
    heading = $0
    gsub(/^\/\* -+ | -+( \*\/)?$/, "", heading)
    if (kind == "code") print ".fi"
    print ".SH \"" toupper(heading) "\""
    kind = "text"
    started = 1
    comment = $0 !~ /\*\/$/
    next
}
/^\/\*/ { comment = 1; into("text"); sub(/^\/\* ?/, " * ") }
comment {
    line = $0
    comment = !sub(/ *\*\/$/, "", line)
    sub(/^ \* ?/, "", line)
    if (line ~ /^ *$/) print ".PP"
    else print (line ~ /^  / || alone ? ".br\n" : "") escape(line)
    alone = line ~ /^  /
    if (!comment) kind = "described"
    next
}
started && /^#ifdef __cplusplus/ { cplusplus = 1 }
/^#(if|ifdef|endif|else)/ || (cplusplus && /^}$/) { next }
/STATIC_ASSERT/ { skipping = 1 }
started && !skipping && NF {
    into("code")
    sub(/^MODLA_API /, "")
    print escape($0)
}
/;$/ { skipping = 0 }
END {
    if (kind == "code") print ".fi"
    print ".SH \"SEE ALSO\"\n.BR modla (1)\n.PP\nFor authors of hosts:\n.I /usr/share/doc/modla/docs"
}
