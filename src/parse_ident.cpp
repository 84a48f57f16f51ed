/*
 * parse_ident.cpp
 *    The names users pass to lavrel: one SQL identifier, quoted or not,
 *    from the front of a string.
 *
 * Every name a user passes to lavrel (policies, columns, levels,
 * compartments, users, schemas, tables, and the names inside label strings)
 * goes through SplitOneIdentifierString.  The layer's identifier reader
 * (host_read_identifier) finds the identifier, taking characters whole, so
 * multibyte characters are never split or case-folded; this file folds
 * unquoted names, truncates long ones and words the errors.  It skips no
 * blanks and looks for no separator: the caller decides what may follow
 * the identifier.
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

/* Folds the single-byte characters of an unquoted name to lower case. */
static void
fold_to_lower(char *name)
{
    for (char *p = name; *p; p += pg_mblen(p))
        if (pg_mblen(p) == 1)
            *p = (char) tolower((unsigned char) *p);
}

void
SplitOneIdentifierString(char *rawstring, char **endp, char **ident, bool warn)
{
    const char *end = NULL;

    *ident = (char *) palloc0(strlen(rawstring) + 1);
    if (*rawstring == '\0')
        ident_error("zero-length delimited identifier");

    switch (host_read_identifier(rawstring, *ident, &end))
    {
        case HostIdentifier::None:
            ident_error("invalid name syntax");
        case HostIdentifier::Truncated:
            ident_error("multibyte character was truncated");
        case HostIdentifier::Read:
            break;
    }
    if (*rawstring != '"')
        fold_to_lower(*ident);
    else if (**ident == '\0')
        ident_error("zero-length delimited identifier");

    *endp = (char *) end;
    truncate_identifier(*ident, strlen(*ident), warn);
}
