-- leak_function.sql: leak(id, label) reports every row it is given.  It is
-- not leakproof and as cheap as a function can be, so the planner would
-- like to call it before anything else.
CREATE FUNCTION leak(id int, label int) RETURNS boolean
LANGUAGE plpgsql COST 0.0000001 AS $$
BEGIN
    RAISE NOTICE 'leak saw row % with label %', id, label;
    RETURN true;
END
$$;
