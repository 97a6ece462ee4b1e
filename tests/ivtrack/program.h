// Runs the program as a shell would, and reads what it says.
#ifndef LIBIV_TESTS_PROGRAM_H
#define LIBIV_TESTS_PROGRAM_H

#include <sys/types.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace test {

using Arguments = std::vector<std::string>;

struct Result {
    int status; ///< exit status, or 128 plus the number of the signal that ended the program
    std::string out;
    std::string err;
};

/// Runs the program to its end with the text as standard input.
Result run(const Arguments& arguments, const std::string& input = "");

/// Runs the program from a shell: the script's "$@" is its command line.
Result run_in_shell(const std::string& script, const Arguments& arguments);

/// Runs the program with files as standard input and output, which the result leaves out.
Result run_redirected(const Arguments& arguments, const std::string& input_path,
                      const std::string& output_path);

/// Whether this machine gives pseudo-terminals.
bool has_terminals();

/// Runs the program with a terminal as standard output and error; `out` is what the terminal shows.
Result run_on_terminal(const Arguments& arguments);

/// A running program with pipes to its standard input and output.
class Process {
  public:
    explicit Process(const Arguments& arguments);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void send(const std::string& text);
    /// The next line of output, without its end; what there is of it if nothing comes any more.
    std::string receive_line();
    void close_input();
    void close_output();
    void kill();
    /// Closes the input, reads the rest and waits for the end.
    Result finish();

  private:
    FILE* err_;
    int in_;
    int out_;
    pid_t pid_;
    std::string received_;
};

/// A folder that lives as long as the object.
class Folder {
  public:
    Folder();
    ~Folder();
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    /// The path of a file in it.
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    /// Writes a file, and the folders above it, and returns its path.
    std::string write(const std::string& name, const std::string& text) const;

  private:
    std::string path_;
};

std::string read_file(const std::string& path);

std::vector<std::string> lines_of(const std::string& text);

/// The columns of every row of comma-separated text.
std::vector<std::vector<std::string>> rows_of(const std::string& text);

/// Every line of JSON lines.
std::vector<nlohmann::json> objects_of(const std::string& text);

/// The value of a line "name: value" of the summary; "(absent)" without such a line.
std::string summary_value(const std::string& err, const std::string& name);

/// Rows of one object standing still in frames first..last, ending in what `tail` says.
std::string still_rows(int first, int last, const std::string& tail = "100,100,50,80,0.9");

} // namespace test

#endif
