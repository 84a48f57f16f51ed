-- label_text(level, bits): the label string of level "l<level>" with the
-- compartments c1 .. c10 whose bits are set (bit 0 is c1).
CREATE FUNCTION label_text(level int, bits int) RETURNS text
LANGUAGE sql IMMUTABLE AS $$
    SELECT 'l' || level || ':' ||
           coalesce((SELECT string_agg('c' || (b + 1), ',' ORDER BY b)
                       FROM generate_series(0, 9) b
                      WHERE bits & (1 << b) <> 0), '')
$$;
