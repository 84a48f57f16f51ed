-- The administrator changes an authorization (the clerk's privileges,
-- back and forth) every 50 ms.
SELECT lavrel.set_user_privs('bench', 'clerk', CASE WHEN random() < 0.5 THEN 'READ' ELSE 'WRITEUP' END);
\sleep 50 ms
