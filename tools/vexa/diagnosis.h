/**
 * @file
 * What is wrong with a bus, from facts that were gathered before: one finding each, with what to do about it.
 * Nothing here looks at the system.
 *
 *     for (const vexa::finding &each : vexa::diagnose(facts)) { fmt::print("{}\n", each.text); }
 */
#ifndef VEXA_DIAGNOSIS_H
#define VEXA_DIAGNOSIS_H

#include "known_table.h"
#include "machine_facts.h"
#include "traffic_watch.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace vexa {

/** Everything that is known. What could not be had is missing, and then nothing is said about it. */
struct doctor_facts {
    endpoint manager;                        /**< where the library looks for the node manager */
    machine_facts before;                    /**< when it began to listen */
    machine_facts now;                       /**< at the end */
    std::optional<uint16_t> id;              /**< a node that somebody wants to start here */
    std::optional<traffic_watch> heard;      /**< nothing when listening was not asked for or not allowed */
    double listened_s = 0;                   /**< how long */
    std::string why_not_heard;               /**< when listening was not allowed */
    std::optional<known_table> table;        /**< of the node manager */
    bool answered = false;                   /**< this program has joined the bus, and left it */
    std::optional<std::string> not_answered; /**< joining was asked for, and this is why it failed */
};

enum class severity {
    ok,     /**< was looked at, and is well */
    note,   /**< worth knowing, or could not be looked at */
    problem /**< somebody has to do something */
};

/** What there is to be found. */
enum class symptom {
    own_address,
    no_way_to_manager,
    manager_here,
    manager_missing,
    manager_answers,
    manager_silent,
    not_accepted,
    port_free,
    port_taken,
    id_taken,
    duplicate_id,
    wrong_address,
    proxy_missing,
    node_gone,
    node_stopped,
    node_not_reading,
    node_inactive,
    keep_alive_missing,
    drops,
    small_buffer,
    malformed,
    cut,
    refused_ids,
    traffic,
    table,
    not_heard,
    no_table,
    number_of_symptoms
};

struct symptom_words {
    symptom what;     /**< also the row's index */
    const char *code; /**< for programs */
    severity how;
    const char *about; /**< for people */
};

/** One row per symptom, in their order. */
const std::array<symptom_words, static_cast<size_t>(symptom::number_of_symptoms)> &all_symptoms();

struct finding {
    symptom what;
    std::optional<uint16_t> node; /**< that it is about */
    std::string text;             /**< a sentence */
    std::string advice;           /**< what to do; empty when nothing is to be done */

    [[nodiscard]] const symptom_words &words() const { return all_symptoms()[static_cast<size_t>(what)]; }
};

/** In the order in which they are worth looking at. */
std::vector<finding> diagnose(const doctor_facts &facts);

/** "ok", "note", "problem". */
const char *name_of(severity how);

} // namespace vexa

#endif
