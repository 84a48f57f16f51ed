\set aid random(1, :accounts)
\set delta random(-5000, 5000)
UPDATE accounts_plain SET abalance = abalance + :delta WHERE aid = :aid;
