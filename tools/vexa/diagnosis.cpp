// The rules by which facts become findings. See diagnosis.h.
#include "diagnosis.h"

#include "diagnosis_rules.h"

#include <algorithm>

namespace vexa {
namespace {

constexpr std::array<symptom_words, static_cast<size_t>(symptom::number_of_symptoms)> k_symptoms = {{
    {symptom::own_address, "own_address", severity::ok, "an address of this machine"},
    {symptom::no_way_to_manager, "no_way_to_manager", severity::problem,
     "no datagram can be sent to the node manager"},
    {symptom::manager_here, "manager_here", severity::ok, "a program has the node manager's port here"},
    {symptom::manager_missing, "manager_missing", severity::problem,
     "this is the node manager's machine, and nobody has its port"},
    {symptom::manager_answers, "manager_answers", severity::ok, "the node manager answers"},
    {symptom::manager_silent, "manager_silent", severity::problem, "the node manager does not answer"},
    {symptom::not_accepted, "not_accepted", severity::problem,
     "the node manager answers others, but not this node"},
    {symptom::port_free, "port_free", severity::ok, "the port of the node to be started is free"},
    {symptom::port_taken, "port_taken", severity::problem, "somebody has the port of the node to be started"},
    {symptom::id_taken, "id_taken", severity::problem,
     "the id of the node to be started is in use elsewhere"},
    {symptom::duplicate_id, "duplicate_id", severity::problem, "two processes register with one id"},
    {symptom::wrong_address, "wrong_address", severity::problem,
     "a node has told the node manager an address that is not its own"},
    {symptom::proxy_missing, "proxy_missing", severity::problem, "there is no active proxy"},
    {symptom::node_gone, "node_gone", severity::problem,
     "a node counts as active, and its process is not there any more"},
    {symptom::node_stopped, "node_stopped", severity::problem, "a node's process is stopped"},
    {symptom::node_not_reading, "node_not_reading", severity::problem, "a node does not read what it gets"},
    {symptom::node_inactive, "node_inactive", severity::note, "a node has left, or was lost"},
    {symptom::keep_alive_missing, "keep_alive_missing", severity::problem,
     "a node counts as active, and sends no keep-alives"},
    {symptom::drops, "drops", severity::problem, "a node's socket has lost datagrams"},
    {symptom::small_buffer, "small_buffer", severity::problem,
     "so much comes at a time that a node's receive buffer cannot hold it"},
    {symptom::malformed, "malformed", severity::problem, "datagrams are not as they must be"},
    {symptom::cut, "cut", severity::problem, "messages are longer than a receiver reads"},
    {symptom::refused_ids, "refused_ids", severity::problem, "messages have ids that no node takes"},
    {symptom::traffic, "traffic", severity::ok, "how much was heard"},
    {symptom::table, "table", severity::ok, "how many nodes there are"},
    {symptom::not_heard, "not_heard", severity::note, "listening was not allowed, or nothing came"},
    {symptom::no_table, "no_table", severity::note, "the node table is not known"},
}};
static_assert(std::ranges::all_of(k_symptoms, [](const symptom_words &row) {
    return static_cast<size_t>(row.what) == static_cast<size_t>(&row - k_symptoms.data());
}));

} // namespace

const std::array<symptom_words, static_cast<size_t>(symptom::number_of_symptoms)> &all_symptoms() {
    return k_symptoms;
}

std::vector<finding> diagnose(const doctor_facts &facts) {
    std::vector<finding> findings;
    rules::check_manager(facts, findings);
    rules::check_planned_node(facts, findings);
    rules::check_registrations(facts, findings);
    rules::check_table(facts, findings);
    rules::check_processes(facts, findings);
    rules::check_traffic(facts, findings);
    return findings;
}

const char *name_of(severity how) {
    switch (how) {
    case severity::ok:
        return "ok";
    case severity::note:
        return "note";
    case severity::problem:
        return "problem";
    }
    return "?";
}

} // namespace vexa
