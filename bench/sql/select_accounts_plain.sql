\set aid random(1, :accounts)
SELECT abalance FROM accounts_plain WHERE aid = :aid;
