/** @file The rules of diagnosis.cpp, in groups. Each looks at facts and adds what it finds. */
#ifndef VEXA_DIAGNOSIS_RULES_H
#define VEXA_DIAGNOSIS_RULES_H

#include "diagnosis.h"

namespace vexa::rules {

using findings = std::vector<finding>;

/** Addresses, and whether the node manager is there and answers. */
void check_manager(const doctor_facts &facts, findings &to);
/** Whether the node of --id could be started here. */
void check_planned_node(const doctor_facts &facts, findings &to);
/** Ids that two processes have, and nodes that are not accepted. */
void check_registrations(const doctor_facts &facts, findings &to);
/** What does not fit between the node table and this machine. */
void check_table(const doctor_facts &facts, findings &to);
/** Processes that hang, and sockets that overflow. */
void check_processes(const doctor_facts &facts, findings &to);
/** Datagrams that are not as they must be. */
void check_traffic(const doctor_facts &facts, findings &to);

} // namespace vexa::rules

#endif
