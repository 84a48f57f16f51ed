DELETE FROM ins_plain;
INSERT INTO ins_plain (id, payload) SELECT g, md5(g::text) FROM generate_series(1, :batch) g;
