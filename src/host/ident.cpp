/*
 * ident.cpp
 *    SQL identifiers read the way PostgreSQL's scanner reads them: the one
 *    reader of identifiers, used by the layer for star references in
 *    statement text and by the module for the names users pass to it.
 */
#include "host/host.h"

static bool
ident_start(unsigned char c)
{
    return IS_HIGHBIT_SET(c) || isalpha(c) || c == '_';
}

static bool
ident_cont(unsigned char c)
{
    return ident_start(c) || isdigit(c) || c == '$';
}

/*
 * Copies the character at *p to *out (when there is one) and steps both
 * past it; false when the string ends inside the character.
 */
static bool
take_char(const char **p, char **out)
{
    int         len = pg_mblen(*p);

    for (int i = 1; i < len; i++)
        if ((*p)[i] == '\0')
            return false;
    if (*out != NULL)
    {
        memcpy(*out, *p, len);
        *out += len;
    }
    *p += len;
    return true;
}

HostIdentifier
host_read_identifier(const char *p, char *out, const char **end)
{
    if (*p == '"')
    {
        for (p++;; )
        {
            if (*p == '\0')
                return HostIdentifier::None;
            if (*p == '"')
            {
                if (p[1] != '"')
                    break;
                p++;            /* a doubled quote: keep one */
            }
            if (!take_char(&p, &out))
                return HostIdentifier::Truncated;
        }
        p++;                    /* past the closing quote */
    }
    else
    {
        if (!ident_start((unsigned char) *p))
            return HostIdentifier::None;
        do
        {
            if (!take_char(&p, &out))
                return HostIdentifier::Truncated;
        } while (ident_cont((unsigned char) *p));
    }
    if (out != NULL)
        *out = '\0';
    *end = p;
    return HostIdentifier::Read;
}
