/*
 * pg.h
 *    The PostgreSQL server headers lavrel uses, included with C linkage.
 *
 * Every C++ translation unit of the module includes this file (through
 * host.h) instead of including server headers itself, so that the
 * extern "C" wrapping is done once and in one place.
 */
#ifndef LAVREL_HOST_PG_H
#define LAVREL_HOST_PG_H

extern "C" {
#include "postgres.h"

#include "access/genam.h"
#include "access/heapam.h"
#include "access/htup_details.h"
#include "access/parallel.h"
#include "access/skey.h"
#include "access/stratnum.h"
#include "access/table.h"
#include "access/tableam.h"
#include "access/xact.h"
#include "catalog/catalog.h"
#include "catalog/dependency.h"
#include "catalog/heap.h"
#include "catalog/indexing.h"
#include "catalog/objectaccess.h"
#include "catalog/objectaddress.h"
#include "catalog/namespace.h"
#include "catalog/pg_authid.h"
#include "catalog/pg_extension.h"
#include "catalog/pg_inherits.h"
#include "catalog/pg_language.h"
#include "catalog/pg_namespace.h"
#include "catalog/pg_operator.h"
#include "catalog/pg_opfamily.h"
#include "catalog/pg_policy.h"
#include "catalog/pg_proc.h"
#include "catalog/pg_type.h"
#include "commands/copyfrom_internal.h"
#include "commands/defrem.h"
#include "commands/extension.h"
#include "commands/policy.h"
#include "commands/progress.h"
#include "commands/sequence.h"
#include "commands/tablecmds.h"
#include "common/hashfn.h"
#include "executor/executor.h"
#include "executor/functions.h"
#include "executor/nodeModifyTable.h"
#include "fmgr.h"
#include "funcapi.h"
#include "mb/pg_wchar.h"
#include "miscadmin.h"
#include "nodes/bitmapset.h"
#include "nodes/makefuncs.h"
#include "nodes/nodeFuncs.h"
#include "nodes/parsenodes.h"
#include "nodes/pg_list.h"
#include "nodes/supportnodes.h"
#include "optimizer/optimizer.h"
#include "optimizer/planner.h"
#include "parser/analyze.h"
#include "parser/parse_coerce.h"
#include "parser/parse_collate.h"
#include "parser/parse_expr.h"
#include "parser/parse_func.h"
#include "parser/parse_oper.h"
#include "parser/parse_relation.h"
#include "parser/parsetree.h"
#include "parser/scansup.h"
#include "postmaster/autovacuum.h"
#include "postmaster/bgworker.h"
#include "replication/logicallauncher.h"
#include "replication/walsender.h"
#include "rewrite/rewriteHandler.h"
#include "rewrite/rewriteManip.h"
#include "rewrite/rowsecurity.h"
#include "storage/bufmgr.h"
#include "storage/lmgr.h"
#include "storage/lockdefs.h"
#include "tcop/tcopprot.h"
#include "tcop/utility.h"
#include "utils/acl.h"
#include "utils/backend_progress.h"
#include "utils/builtins.h"
#include "utils/catcache.h"
#include "utils/fmgroids.h"
#include "utils/guc.h"
#include "utils/hsearch.h"
#include "utils/inval.h"
#include "utils/lsyscache.h"
#include "utils/memutils.h"
#include "utils/plancache.h"
#include "utils/rel.h"
#include "utils/rls.h"
#include "utils/snapmgr.h"
#include "utils/syscache.h"
#include "utils/tuplestore.h"
#include "utils/varlena.h"
}

/*
 * PostgreSQL 15 declares the walker argument of its tree walkers without a
 * prototype; a walker with typed arguments is passed through this cast.
 */
#define MAC_WALKER(fn) reinterpret_cast<bool (*)()>(reinterpret_cast<void (*)()>(fn))

#endif /* LAVREL_HOST_PG_H */
