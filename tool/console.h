// What the command says: results to standard output, words to standard error.
//
// Results are gathered and written in large pieces; flush() ends each line's way for those who follow. Words appear at
// once, each as one line that begins with "tabulo: ".
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "tabulo/table_info.h"
#include "tool/status.h"

namespace tabulo::tool {

enum class ColourChoice { automatic, always, never };

class Console {
  public:
    // Takes SIGINT and SIGTERM over, and ignores SIGPIPE and SIGXFSZ.
    Console();
    // For one question among many that a server answers, in a thread of its own: words go to `hear`, and nothing is
    // written. Work that is watched ends with what `check` throws.
    Console(std::function<void(std::string_view)> hear, std::function<void()> check);
    // Writes what is gathered, as far as somebody reads it.
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    // Colour on standard output: by default on a terminal whose user has not set NO_COLOR.
    void chooseColour(ColourChoice choice) noexcept { colour_ = choice; }
    bool hasColour() const noexcept;
    bool outIsTerminal() const noexcept { return outIsTerminal_; }
    // Columns of the terminal at standard output; 0 when it is none, so that nothing is cut.
    int width() const noexcept;

    // Results. Throws ClosedPipe, or Failure with the system's words (a full disk).
    void write(std::string_view text);
    void flush();
    // Throws ClosedPipe when nobody reads the results any more, for those who wait and have nothing to write.
    static void checkReader();

    // Words: a line to standard error. A progress line is taken away first.
    void say(std::string_view line);
    // The same for what is damaged, missing or left out: the command will end with Status::incomplete.
    void warn(std::string_view line);
    Status status() const noexcept { return status_; }

    // Throws Interrupted when the user has interrupted. Loops that can be long call it.
    static void checkInterrupt();
    // Whether the user has, for other threads.
    static bool isInterrupted() noexcept;
    // For those who go on after Ctrl-C: whether it was pressed, which is then forgotten. Interrupted when the command
    // was asked to end by SIGTERM.
    static bool takeInterrupt();

    // Work that ends when the user interrupts, and tells how far it has come (bytes, rate, time left) on a terminal
    // when it takes longer than a second. The Console must outlive it.
    Work watched(std::string what);

  private:
    void showProgress(const std::string& what, const Progress& progress);
    void clearProgress();

    std::function<void(std::string_view)> hear_;
    std::function<void()> check_;
    std::string gathered_;
    bool outIsTerminal_ = false;
    bool errIsTerminal_ = false;
    ColourChoice colour_ = ColourChoice::automatic;
    Status status_ = Status::done;
    bool progressShown_ = false;
    std::chrono::steady_clock::time_point progressBegun_;
    std::chrono::steady_clock::time_point progressDrawn_;
};

}  // namespace tabulo::tool
