/**
 * @file
 * A child process that is spoken to in lines: its standard input takes them, its standard output gives them.
 * It never outlives its parent: the destructor kills it, and so does the kernel when the parent dies first.
 *
 *     child_process node({"./vexa_demo_node", "--id", "5"}, {.error_file = "node5.log"});
 *     node.send_line("start");
 *     std::optional<std::string> answer = node.wait_line(std::chrono::seconds(1));
 *
 * @par Threads One object is used by one thread; its children die with the thread that started them.
 */
#ifndef CHILD_PROCESS_H
#define CHILD_PROCESS_H

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

class child_process {
public:
    struct settings {
        std::string error_file; /**< receives standard error; empty: it goes where the parent's goes */
        bool merge_errors;      /**< standard error goes to the lines of standard output */
        bool apart = false; /**< Ctrl-C on the terminal is for the parent alone: a process group of its own */
    };

    /**
     * Starts a program.
     * @param args  the program, found like execvp finds it, and its arguments
     * @throws std::system_error when no process can be made; a program that cannot be run says so on standard
     * error and exits with 127
     */
    child_process(const std::vector<std::string> &args, const settings &how);
    explicit child_process(const std::vector<std::string> &args) : child_process(args, settings{}) {}
    ~child_process();
    child_process(const child_process &) = delete;
    child_process &operator=(const child_process &) = delete;

    /** Writes a line to its standard input. False when it reads no more. */
    [[nodiscard]] bool send_line(std::string_view line) const;

    /** Ends its standard input. */
    void end_input();

    /** Becomes readable when there is output: for poll. */
    [[nodiscard]] int output_fd() const { return output_; }

    /** Takes in what it has written so far, without waiting. False once its output has ended. */
    bool receive();

    /** The oldest line that was taken in and not taken out, without its line feed. */
    std::optional<std::string> take_line();

    /** The next line; nothing when the time passes or the output ends before it. */
    std::optional<std::string> wait_line(std::chrono::milliseconds patience);

    void signal(int number) const;

    /** Waits for its end. The exit status, or 128 + the signal that ended it; nothing while it runs. */
    std::optional<int> wait_exit(std::chrono::milliseconds patience);

private:
    void close_all();

    pid_t pid_ = -1;
    int watch_ = -1;  // a descriptor for the process, readable at its end
    int input_ = -1;  // write end
    int output_ = -1; // read end, non-blocking
    std::string received_;
    std::optional<int> exit_;
};

#endif
