-- test/upgrade/objects.sql: every object of the lavrel extension and all
-- that defines it, by name and never by oid, so that two databases that
-- should hold the same extension print the same lines.  Each line is
-- "kind|object|fact"; test/upgrade.sh compares the lines of a database
-- updated from an older version with those of a fresh install.
\pset footer off
\pset tuples_only on
\pset format unaligned
\pset fieldsep '|'

-- The extension itself: version, schema, relocatability, the tables that
-- pg_dump keeps and the conditions it keeps them with.
SELECT 'extension', e.extname,
       concat_ws(' ', e.extversion, e.extnamespace::regnamespace, e.extrelocatable,
                 (SELECT array_agg(c::regclass::text ORDER BY c::regclass::text)
                    FROM unnest(e.extconfig) c),
                 (SELECT array_agg(x ORDER BY x) FROM unnest(e.extcondition) x))
  FROM pg_extension e WHERE e.extname = 'lavrel';

-- Every member object, as PostgreSQL identifies it.
SELECT 'member', pg_describe_object(d.classid, d.objid, d.objsubid), ''
  FROM pg_depend d JOIN pg_extension e ON d.refobjid = e.oid
 WHERE d.refclassid = 'pg_extension'::regclass AND d.deptype = 'e' AND e.extname = 'lavrel'
 ORDER BY 2;

-- Objects in the extension's schema, members or not.
SELECT 'in schema', pg_describe_object(x.classid, x.objid, 0), ''
  FROM (SELECT 'pg_class'::regclass AS classid, oid AS objid FROM pg_class
         WHERE relnamespace = 'lavrel'::regnamespace
        UNION ALL SELECT 'pg_proc'::regclass, oid FROM pg_proc
         WHERE pronamespace = 'lavrel'::regnamespace
        UNION ALL SELECT 'pg_type'::regclass, oid FROM pg_type
         WHERE typnamespace = 'lavrel'::regnamespace) x
 ORDER BY 2;

-- The schema: owner, privileges, description.
SELECT 'schema', n.nspname,
       concat_ws(' ', n.nspowner::regrole, coalesce(n.nspacl, acldefault('n', n.nspowner))::text, obj_description(n.oid, 'pg_namespace'))
  FROM pg_namespace n WHERE n.nspname = 'lavrel';

-- Functions: the whole definition (language, volatility, strictness,
-- parallel safety, security, cost, settings, body or symbol), privileges
-- and description.  Privileges are compared as they act: pg_upgrade
-- writes the default privileges as null.
SELECT 'function', p.oid::regprocedure,
       concat_ws(' ', pg_get_functiondef(p.oid), coalesce(p.proacl, acldefault('f', p.proowner))::text, p.proleakproof,
                 obj_description(p.oid, 'pg_proc'))
  FROM pg_proc p WHERE p.pronamespace = 'lavrel'::regnamespace
 ORDER BY p.oid::regprocedure::text;

-- Tables and sequences: kind, persistence, options, row-level security,
-- privileges, description.
SELECT 'relation', c.oid::regclass,
       concat_ws(' ', c.relkind, c.relpersistence, c.reloptions::text, c.relrowsecurity,
                 c.relforcerowsecurity,
                 coalesce(c.relacl, acldefault(CASE c.relkind WHEN 'S' THEN 's' ELSE 'r' END,
                                               c.relowner))::text, c.relowner::regrole,
                 obj_description(c.oid, 'pg_class'))
  FROM pg_class c WHERE c.relnamespace = 'lavrel'::regnamespace AND c.relkind <> 'i'
 ORDER BY c.oid::regclass::text;

-- Columns, in their order: type, not null, default, identity, collation,
-- privileges, description.
SELECT 'column', a.attrelid::regclass || '.' || a.attnum,
       concat_ws(' ', a.attname, format_type(a.atttypid, a.atttypmod), a.attnotnull,
                 pg_get_expr(ad.adbin, ad.adrelid), a.attidentity, a.attgenerated,
                 a.attcollation::regcollation, a.attacl::text,
                 col_description(a.attrelid, a.attnum))
  FROM pg_attribute a JOIN pg_class c ON c.oid = a.attrelid
  LEFT JOIN pg_attrdef ad ON (ad.adrelid, ad.adnum) = (a.attrelid, a.attnum)
 WHERE c.relnamespace = 'lavrel'::regnamespace AND a.attnum > 0 AND NOT a.attisdropped
 ORDER BY 2;

-- Constraints, indexes, triggers, rules and policies of those tables.
SELECT 'constraint', conrelid::regclass || '.' || conname,
       concat_ws(' ', contype, pg_get_constraintdef(oid), condeferrable, condeferred)
  FROM pg_constraint WHERE connamespace = 'lavrel'::regnamespace ORDER BY 2;
SELECT 'index', indexrelid::regclass, pg_get_indexdef(indexrelid)
  FROM pg_index WHERE indrelid IN (SELECT oid FROM pg_class
                                    WHERE relnamespace = 'lavrel'::regnamespace)
 ORDER BY indexrelid::regclass::text;
SELECT 'trigger', tgrelid::regclass || '.' || tgname, pg_get_triggerdef(oid)
  FROM pg_trigger WHERE tgrelid IN (SELECT oid FROM pg_class
                                     WHERE relnamespace = 'lavrel'::regnamespace)
 ORDER BY 2;
SELECT 'rule', ev_class::regclass || '.' || rulename, pg_get_ruledef(oid)
  FROM pg_rewrite WHERE ev_class IN (SELECT oid FROM pg_class
                                      WHERE relnamespace = 'lavrel'::regnamespace)
 ORDER BY 2;
SELECT 'policy', schemaname || '.' || tablename || '.' || policyname,
       concat_ws(' ', permissive, roles::text, cmd, qual, with_check)
  FROM pg_policies ORDER BY 2;

-- Sequences: their parameters and where they stand.
SELECT 'sequence', s.seqrelid::regclass,
       concat_ws(' ', format_type(s.seqtypid, NULL), s.seqstart, s.seqincrement, s.seqmax,
                 s.seqmin, s.seqcache, s.seqcycle)
  FROM pg_sequence s JOIN pg_class c ON c.oid = s.seqrelid
 WHERE c.relnamespace = 'lavrel'::regnamespace ORDER BY s.seqrelid::regclass::text;

-- What depends on the extension's objects (the policy columns' defaults,
-- the guards, the tables' own types and toast tables, whose names carry
-- an oid and are left out).
SELECT 'depended on', pg_describe_object(d.refclassid, d.refobjid, d.refobjsubid),
       concat_ws(' ', regexp_replace(pg_describe_object(d.classid, d.objid, d.objsubid),
                                     'pg_toast_[0-9]+', 'pg_toast_*'), d.deptype)
  FROM pg_depend d
 WHERE (d.refclassid = 'pg_proc'::regclass
        AND d.refobjid IN (SELECT oid FROM pg_proc WHERE pronamespace = 'lavrel'::regnamespace))
    OR (d.refclassid = 'pg_class'::regclass
        AND d.refobjid IN (SELECT oid FROM pg_class WHERE relnamespace = 'lavrel'::regnamespace))
 ORDER BY 2, 3;

-- The names recorded for pg_dump, with their origin told as this
-- database's or another's.
SELECT 'object name', concat_ws(' ', classid::regclass, object_type, object_names, object_args),
       origin = (SELECT s.system_identifier || '/' || e.oid
                   FROM pg_control_system() s, pg_extension e WHERE e.extname = 'lavrel')
  FROM lavrel.lavrel_object_names ORDER BY 2, 3;
