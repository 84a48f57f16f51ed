\set aid random(1, :accounts)
SELECT abalance FROM accounts_protected WHERE aid = :aid;
