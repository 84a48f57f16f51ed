-- try_stmt(statement): runs one statement and shows how it ended: "ok", or
-- the SQLSTATE and the message of the error it raised.
CREATE FUNCTION public.try_stmt(statement text) RETURNS text
LANGUAGE plpgsql AS $$
BEGIN
    EXECUTE statement;
    RETURN 'ok';
EXCEPTION WHEN OTHERS THEN
    RETURN SQLSTATE || ': ' || SQLERRM;
END
$$;
