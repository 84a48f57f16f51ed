DELETE FROM ins_protected;
INSERT INTO ins_protected (id, payload) SELECT g, md5(g::text) FROM generate_series(1, :batch) g;
