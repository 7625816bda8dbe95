// audiomw run: option parsing; the run itself is RunSession.
#include <cstdio>
#include <cstring>

#include "commands.h"
#include "run_session.h"

namespace audiomw_tool {

namespace {

const char kRunHelp[] =
    "usage: audiomw run CONFIG.xml [options]\n"
    "\n"
    "Runs the configuration as the device's application does: loads the AI and AO\n"
    "lists, creates and enables each, loads the stream configurations and switches each\n"
    "named slot to its configuration; prints progress once a second and a summary at the\n"
    "end (end time, Ctrl-C or SIGTERM). CONFIG.xml is copied to ROOT/cfg0/mpp_cfg.xml.\n"
    "\n"
    "  --root DIR                 root of the device's fixed paths (default: a temporary one)\n"
    "  --cards VCARDS.txt         virtual sound cards to load (TINYALSA_VCARDS)\n"
    "  --stream SLOT=NAME         run configuration NAME in stream slot SLOT (0 or 1);\n"
    "                             default: each slot runs the configuration of its Id\n"
    "  --switch SECONDS:SLOT=NAME switch slot SLOT to NAME at that time\n"
    "  --line-in SECONDS:0|1      set the line-in connect state (and its GPIO) at that time\n"
    "  --log FILE                 the library's log lines go to FILE (default: standard error)\n"
    "  --seconds N                end after N seconds (default: run until stopped)\n"
    "  --dumps                    switch on the dump nodes of every stream started\n"
    "  --free-run                 virtual cards of the configuration run without pacing\n"
    "\n"
    "Exit status: 0, or 1 when a stream could not start; 2 for bad arguments.\n";

bool Fail(const char* what, const std::string& value) {
    std::fprintf(stderr, "audiomw run: bad %s '%s' (see audiomw run --help)\n", what, value.c_str());
    return false;
}

bool ParseOption(const std::string& option, ArgCursor& args, RunOptions* opt) {
    std::string value;
    if (option == "--free-run" || option == "--dumps") {
        (option == "--dumps" ? opt->dumps : opt->freeRun) = true;
        return true;
    }
    if (!args.Value(&value)) {
        return Fail("option, missing value for", option);
    }
    if (option == "--root") {
        opt->root = value;
    } else if (option == "--log") {
        opt->log = value;
    } else if (option == "--cards") {
        opt->cards = value;
    } else if (option == "--stream") {
        SlotName slot;
        return ParseSlotName(value, &slot) ? (opt->streams.push_back(slot), true) : Fail("--stream", value);
    } else if (option == "--switch") {
        TimedSwitch event;
        return ParseTimedSwitch(value, &event) ? (opt->switches.push_back(event), true)
                                               : Fail("--switch", value);
    } else if (option == "--line-in") {
        TimedLineIn event;
        return ParseTimedLineIn(value, &event) ? (opt->lineIns.push_back(event), true)
                                               : Fail("--line-in", value);
    } else if (option == "--seconds") {
        return ParseSeconds(value, &opt->seconds) || Fail("--seconds", value);
    } else {
        return Fail("option", option);
    }
    return true;
}

}  // namespace

int RunCommand(int argc, char** argv) {
    RunOptions opt;
    ArgCursor args(argc, argv);
    while (!args.Done()) {
        std::string arg = args.Next();
        if (arg == "--help" || arg == "-h") {
            std::fputs(kRunHelp, stdout);
            return 0;
        }
        if (arg.compare(0, 2, "--") == 0) {
            if (!ParseOption(arg, args, &opt)) {
                return 2;
            }
        } else if (opt.config.empty()) {
            opt.config = arg;
        } else {
            return Fail("argument", arg) ? 0 : 2;
        }
    }
    if (opt.config.empty()) {
        std::fputs(kRunHelp, stderr);
        return 2;
    }
    RunSession session(opt);
    return session.Run();
}

}  // namespace audiomw_tool
