--
-- A server without lavrel in shared_preload_libraries: the library refuses
-- to load, so neither the extension nor any of its functions can be used
-- with protection silently missing.
--
CREATE EXTENSION lavrel;
SELECT count(*) FROM pg_extension WHERE extname = 'lavrel';
LOAD 'lavrel';
SHOW lavrel.enable_mac;
