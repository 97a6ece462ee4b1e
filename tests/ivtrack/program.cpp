#include "program.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace test {
namespace {

/// The words that run the program.
Arguments command_line(const Arguments& arguments) {
    Arguments words;
    std::istringstream command(IVTRACK_COMMAND);
    for (std::string word; std::getline(command, word, '|');) {
        words.push_back(word);
    }
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

/// Words as exec wants them, valid as long as they are.
std::vector<char*> pointers_to(Arguments& words) {
    std::vector<char*> pointers;
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

void require(bool holds, const char* what) {
    if (!holds) {
        throw std::runtime_error(fmt::format("{}: errno {}", what, errno));
    }
}

pid_t spawn(Arguments words, int in, int out, int err) {
    const std::vector<char*> argv = pointers_to(words);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
    // A shell hands on the default action of SIGPIPE; this process may have another.
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t pid = -1;
    const int error = posix_spawnp(&pid, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    errno = error;
    require(error == 0, "posix_spawnp");
    return pid;
}

int wait_for(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        require(errno == EINTR, "waitpid");
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// A nameless file that no started program inherits.
FILE* nameless_file() {
    FILE* file = std::tmpfile();
    require(file != nullptr, "tmpfile");
    fcntl(fileno(file), F_SETFD, FD_CLOEXEC);
    return file;
}

/// The whole text of a file that another process wrote to; closes it.
std::string take_text(FILE* file) {
    std::rewind(file);
    std::string text;
    char piece[4096];
    while (const std::size_t count = std::fread(piece, 1, sizeof piece, file)) {
        text.append(piece, count);
    }
    std::fclose(file);
    return text;
}

/// Appends what can be read within the time. False at the end, or when nothing comes.
bool read_some(int descriptor, std::string& text) {
    constexpr int PATIENCE_MILLISECONDS = 30000;
    pollfd waiting{descriptor, POLLIN, 0};
    if (poll(&waiting, 1, PATIENCE_MILLISECONDS) <= 0) {
        return false;
    }
    char piece[4096];
    const ssize_t count = read(descriptor, piece, sizeof piece);
    if (count > 0) {
        text.append(piece, static_cast<std::size_t>(count));
    }
    return count > 0;
}

Result run_words(const Arguments& words, const std::string& input) {
    FILE* in = nameless_file();
    std::fwrite(input.data(), 1, input.size(), in);
    std::rewind(in);
    FILE* out = nameless_file();
    FILE* err = nameless_file();
    const int status = wait_for(spawn(words, fileno(in), fileno(out), fileno(err)));
    std::fclose(in);
    return {status, take_text(out), take_text(err)};
}

} // namespace

Result run(const Arguments& arguments, const std::string& input) {
    return run_words(command_line(arguments), input);
}

Result run_in_shell(const std::string& script, const Arguments& arguments) {
    Arguments words{"/bin/sh", "-c", script, "sh"};
    const Arguments command = command_line(arguments);
    words.insert(words.end(), command.begin(), command.end());
    return run_words(words, "");
}

Result run_redirected(const Arguments& arguments, const std::string& input_path,
                      const std::string& output_path) {
    const int in = open(input_path.c_str(), O_RDONLY | O_CLOEXEC);
    require(in >= 0, "open input");
    const int out = open(output_path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    require(out >= 0, "open output");
    FILE* err = nameless_file();
    const int status = wait_for(spawn(command_line(arguments), in, out, fileno(err)));
    close(in);
    close(out);
    return {status, "", take_text(err)};
}

bool has_terminals() {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    const bool opened = terminal >= 0 && unlockpt(terminal) == 0;
    if (terminal >= 0) {
        close(terminal);
    }
    return opened;
}

Result run_on_terminal(const Arguments& arguments) {
    Arguments words = command_line(arguments);
    const std::vector<char*> argv = pointers_to(words);
    int terminal = -1;
    const pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
    require(pid >= 0, "forkpty");
    if (pid == 0) {
        execvp(argv[0], argv.data());
        _exit(127);
    }
    std::string shown;
    while (read_some(terminal, shown)) {
    }
    close(terminal);
    return {wait_for(pid), shown, ""};
}

Process::Process(const Arguments& arguments) : err_(nameless_file()) {
    std::signal(SIGPIPE, SIG_IGN);
    int to_program[2];
    int from_program[2];
    require(pipe2(to_program, O_CLOEXEC) == 0 && pipe2(from_program, O_CLOEXEC) == 0, "pipe2");
    pid_ = spawn(command_line(arguments), to_program[0], from_program[1], fileno(err_));
    close(to_program[0]);
    close(from_program[1]);
    in_ = to_program[1];
    out_ = from_program[0];
}

Process::~Process() {
    if (pid_ > 0) {
        kill();
        finish();
    }
}

void Process::send(const std::string& text) {
    std::size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t count = write(in_, text.data() + sent, text.size() - sent);
        if (count < 0) {
            return;
        }
        sent += static_cast<std::size_t>(count);
    }
}

std::string Process::receive_line() {
    while (received_.find('\n') == std::string::npos && read_some(out_, received_)) {
    }
    const std::size_t end = std::min(received_.find('\n'), received_.size());
    const std::string line = received_.substr(0, end);
    received_.erase(0, end + 1);
    return line;
}

void Process::close_input() {
    if (in_ >= 0) {
        close(in_);
    }
    in_ = -1;
}

void Process::close_output() {
    if (out_ >= 0) {
        close(out_);
    }
    out_ = -1;
}

void Process::kill() {
    ::kill(pid_, SIGKILL);
}

Result Process::finish() {
    close_input();
    while (out_ >= 0 && read_some(out_, received_)) {
    }
    close_output();
    const int status = wait_for(pid_);
    pid_ = -1;
    return {status, received_, take_text(err_)};
}

Folder::Folder() : path_((std::filesystem::temp_directory_path() / "ivtrack-XXXXXX").string()) {
    require(mkdtemp(path_.data()) != nullptr, "mkdtemp");
}

Folder::~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string Folder::write(const std::string& name, const std::string& text) const {
    const std::string path = *this / name;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<std::string> lines_of(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::vector<std::string>> rows_of(const std::string& text) {
    std::vector<std::vector<std::string>> rows;
    for (const std::string& line : lines_of(text)) {
        std::istringstream stream(line);
        rows.emplace_back();
        for (std::string column; std::getline(stream, column, ',');) {
            rows.back().push_back(column);
        }
    }
    return rows;
}

std::vector<nlohmann::json> objects_of(const std::string& text) {
    std::vector<nlohmann::json> objects;
    for (const std::string& line : lines_of(text)) {
        objects.push_back(nlohmann::json::parse(line));
    }
    return objects;
}

std::string summary_value(const std::string& err, const std::string& name) {
    for (const std::string& line : lines_of(err)) {
        if (line.rfind(name + ": ", 0) == 0) {
            return line.substr(name.size() + 2);
        }
    }
    return "(absent)";
}

std::string still_rows(int first, int last, const std::string& tail) {
    std::string text;
    for (int frame = first; frame <= last; ++frame) {
        text += fmt::format("{},-1,{}\n", frame, tail);
    }
    return text;
}

} // namespace test
