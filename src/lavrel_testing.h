/*
 * lavrel_testing.h
 *    Functions of the module that no other file of it calls, declared for
 *    the test module (test/modules/lavrel_test), which checks them one by
 *    one.  The files's own files include lavrel.h only.
 */
#ifndef LAVREL_TESTING_H
#define LAVREL_TESTING_H

#include "lavrel.h"

extern "C" {

/* label_record.cpp */
PGDLLEXPORT bool dominated_by(const MacLabel *a, const MacLabel *b);
PGDLLEXPORT bool strictly_dominated_by(const MacLabel *a, const MacLabel *b);

/* policy_syscat.cpp */
PGDLLEXPORT MacLabel *get_label_by_id(int32 label_id);

/* policy_label.cpp */
PGDLLEXPORT void RemoveLabelById(int32 label_id);

/* policy_cmds.cpp */
PGDLLEXPORT void RemovePolicyByIdMac(Oid policy_id);
PGDLLEXPORT void AlterPolicyTuple(Oid policy_id, bool enabled);
PGDLLEXPORT void RemoveLevelById(Oid policy_id, int16 level_id);
PGDLLEXPORT void RemoveCompById(Oid policy_id, int16 comp_id);
PGDLLEXPORT void MAC_PolicyColPermCheck(Oid relid, const char *colname);

/* policy_session.cpp: the session tables and their primitives */
extern PGDLLEXPORT HTAB *MacSessionLabelHT;
extern PGDLLEXPORT HTAB *MacLabelLookupInfoHT;
extern PGDLLEXPORT HTAB *MacLabelMediationHT;

/* Creates the "MAC Session" context; a second call ends the backend. */
PGDLLEXPORT void InitMacSessionMemoryContext(void);
PGDLLEXPORT MacLabelLookupInfo *mac_LabelLookupInfoHTLookup(Oid policy_id);
PGDLLEXPORT MacLabelMediation *mac_LabelMediationHTLookup(int32 label_id);
PGDLLEXPORT void mac_SessionLabelHTInsert(Oid policy_id, MacSessionLabel *rec);
PGDLLEXPORT void mac_LabelLookupInfoHTInsert(Oid policy_id, MacLabelLookupInfo *rec);
PGDLLEXPORT void mac_LabelMediationHTInsert(int32 label_id, MacLabelMediation *rec);
PGDLLEXPORT void mac_SessionLabelHTDelete(MacSessionLabel *rec);
PGDLLEXPORT void mac_LabelLookupInfoHTDelete(MacLabelLookupInfo *rec);
PGDLLEXPORT void mac_LabelMediationHTDelete(MacLabelMediation *rec);

} /* extern "C" */

#endif /* LAVREL_TESTING_H */
