--
-- The extension was created while lavrel was preloaded, then the server was
-- restarted without it.  The library refuses to load anywhere else, so no
-- function of the extension runs and the extension cannot be created again.
--
SELECT lavrel.read_mediation(1, 1);
SELECT lavrel.create_policy('p', 'c');
DROP EXTENSION lavrel;
CREATE EXTENSION lavrel;
SELECT count(*) FROM pg_extension WHERE extname = 'lavrel';
LOAD 'lavrel';
