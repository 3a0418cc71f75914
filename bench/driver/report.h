/**
 * @file
 * The bench's report: Markdown, with tables and with pictures that lie beside it.
 */
#ifndef BENCH_REPORT_H
#define BENCH_REPORT_H

#include <map>
#include <string>
#include <vector>

namespace bench {

/** A table that is filled row by row. */
class table {
public:
    explicit table(std::vector<std::string> columns) : columns_(std::move(columns)) {}
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    [[nodiscard]] std::string markdown() const;

private:
    std::vector<std::string> columns_;
    std::vector<std::vector<std::string>> rows_;
};

/** What a goal was held to. */
struct goal {
    std::string work;
    double most; ///< the highest ratio that holds it
    double ratio;
};

class report {
public:
    void heading(const std::string &text);
    void paragraph(const std::string &text);
    void add(const table &filled);
    void picture(const std::string &file, const std::string &meaning);
    void measured(const goal &held) { goals_.push_back(held); }

    /** The goals first, then everything in the order in which it was added. */
    [[nodiscard]] std::string markdown() const;

private:
    [[nodiscard]] std::string goals() const;

    std::string body_;
    std::vector<goal> goals_;
};

double median(std::vector<double> values);

/** Nanoseconds as microseconds, with as many digits as mean something. */
std::string microseconds(double ns);

} // namespace bench

#endif
