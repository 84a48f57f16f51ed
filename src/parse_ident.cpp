/*
 * parse_ident.cpp
 *    The identifier reader: one SQL identifier, quoted or not, from the
 *    front of a string.
 *
 * Every name a user passes to lavrel (policies, columns, levels,
 * compartments, users, schemas, tables, and the names inside label strings)
 * goes through SplitOneIdentifierString.  It works character by character
 * with pg_mblen, so multibyte characters are never split or case-folded.
 * It skips no blanks and looks for no separator: the caller decides what
 * may follow the identifier.
 */
#include "lavrel.h"

#include <ctype.h>

static pg_attribute_noreturn() void
ident_error(const char *message)
{
    ereport(ERROR,
            (errcode(ERRCODE_SYNTAX_ERROR),
             errmsg_internal("%s", message)));
}

/* Length of the character at `p`, refusing one that runs past the end. */
static int
ident_char_len(const char *p)
{
    int         len = pg_mblen(p);

    for (int i = 1; i < len; i++)
        if (p[i] == '\0')
            ident_error("multibyte character was truncated");
    return len;
}

static bool
ident_continues(const char *p)
{
    unsigned char c = (unsigned char) *p;

    if (c == '\0')
        return false;
    return pg_mblen(p) > 1 || isalpha(c) || isdigit(c) || c == '_' || c == '$';
}

/* An unquoted identifier: folded to lower case, multibyte bytes kept. */
static const char *
read_unquoted(const char *p, char *out)
{
    if (pg_mblen(p) == 1 && !isalpha((unsigned char) *p) && *p != '_')
        ident_error("invalid name syntax");
    do
    {
        int         len = ident_char_len(p);

        if (len == 1)
            *out++ = (char) tolower((unsigned char) *p);
        else
            out = (char *) memcpy(out, p, len) + len;
        p += len;
    } while (ident_continues(p));
    *out = '\0';
    return p;
}

/* A quoted identifier: kept as written, "" standing for one quote. */
static const char *
read_quoted(const char *p, char *out)
{
    char       *start = out;

    p++;                        /* the opening quote */
    for (;;)
    {
        if (*p == '\0')
            ident_error("invalid name syntax");
        if (*p == '"')
        {
            if (p[1] != '"')
                break;
            p++;                /* a doubled quote: keep one */
        }
        int         len = ident_char_len(p);

        out = (char *) memcpy(out, p, len) + len;
        p += len;
    }
    *out = '\0';
    if (out == start)
        ident_error("zero-length delimited identifier");
    return p + 1;               /* past the closing quote */
}

void
SplitOneIdentifierString(char *rawstring, char **endp, char **ident, bool warn)
{
    const char *end;

    *ident = (char *) palloc0(strlen(rawstring) + 1);
    if (*rawstring == '\0')
        ident_error("zero-length delimited identifier");

    if (*rawstring == '"')
        end = read_quoted(rawstring, *ident);
    else
        end = read_unquoted(rawstring, *ident);

    *endp = (char *) end;
    truncate_identifier(*ident, strlen(*ident), warn);
}
