// Command-line pieces shared by the subcommands: option values of the forms
// "SLOT=NAME", "SECONDS:SLOT=NAME" and "SECONDS:0|1", parsed strictly.
#ifndef AUDIOMW_TOOL_CLI_ARGS_H
#define AUDIOMW_TOOL_CLI_ARGS_H

#include <string>
#include <vector>

namespace audiomw_tool {

// A stream slot and the name of the stream configuration to run in it.
struct SlotName {
    int slot = -1;
    std::string name;
};

// An action at a time from the start of the run.
struct TimedSwitch {
    double seconds = 0.0;
    SlotName target;
};

struct TimedLineIn {
    double seconds = 0.0;
    bool connected = false;
};

// Each returns false (and leaves *out unspecified) for text of another form.
bool ParseSlotName(const std::string& text, SlotName* out);
bool ParseTimedSwitch(const std::string& text, TimedSwitch* out);
bool ParseTimedLineIn(const std::string& text, TimedLineIn* out);
// A non-negative decimal number of seconds ("2", "1.5").
bool ParseSeconds(const std::string& text, double* out);

// Walks argv of a subcommand: options with a value ("--root DIR") and positionals.
class ArgCursor {
  public:
    ArgCursor(int argc, char** argv) : m_args(argv, argv + argc) {}
    bool Done() const { return m_next >= m_args.size(); }
    const std::string& Next() { return m_args[m_next++]; }
    // The value after an option; false when the option ends the line.
    bool Value(std::string* out);

  private:
    std::vector<std::string> m_args;
    size_t m_next = 0;
};

}  // namespace audiomw_tool

#endif  // AUDIOMW_TOOL_CLI_ARGS_H
