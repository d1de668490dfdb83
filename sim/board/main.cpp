// custodo-board: the simulated application board. It creates a board root, runs Custodo on
// it in namespaces of its own, and drives the running board for people and tests alike.
#include <getopt.h>

#include <cstdio>
#include <string>

#include "sim/board/commands.h"

namespace {

struct Command {
  const char* name;
  int (*run)(const Args&);
  const char* help;
};

const Command kCommands[] = {
    {"init", cmd_init, "init DIR                      create (or re-initialise) a board root"},
    {"run", cmd_run,
     "run DIR [--no-counter] [--no-watchdog] [--custodo PATH] [-- ARGS...]\n"
     "                                power the board on and run Custodo until Ctrl-C"},
    {"send", cmd_send, "send DIR ID [PAYLOAD] [--len N]  send any packet (PAYLOAD in hex)"},
    {"poweroff", cmd_poweroff, "poweroff DIR [PROMPT]         ask the supervisor to power off"},
    {"reboot", cmd_reboot, "reboot DIR [PROMPT]           ask the supervisor to reboot"},
    {"quom-reset", cmd_quom_reset, "quom-reset DIR                ask for a cloud-client reset"},
    {"stage-start", cmd_stage_start, "stage-start DIR STAGE         report an update stage started"},
    {"stage-done", cmd_stage_done, "stage-done DIR STAGE RESULT   report an update stage done"},
    {"chimer-reboot", cmd_chimer_reboot, "chimer-reboot DIR             the chimer's reboot request"},
    {"recv", cmd_recv,
     "recv DIR MODULE [--timeout S] [--count N]\n"
     "                                print the packets sent to MODULE: id, length, payload"},
    {"mcu", cmd_mcu, "mcu DIR key=value...          set the simulated MCU's state"},
    {"counter", cmd_counter, "counter DIR freeze [MS] | set MS | run\n"
                             "                                stop, set or restart the counter"},
    {"wallclock", cmd_wallclock, "wallclock DIR SECONDS [MINUTESWEST]  set the board's wall clock"},
    {"kill", cmd_kill, "kill DIR NAME [SIGNAL]        signal the board's processes of that name"},
    {"exec", cmd_exec, "exec DIR -- CMD...            run a command inside the board"},
    {"hold", cmd_hold, "hold DIR                      hold the supervisor's next restart"},
    {"release", cmd_release, "release DIR                   release a held restart"},
    {"daemon", cmd_daemon, "daemon DIR NAME MODE          stub daemon behaviour: hup-exit, "
                           "hup-ignore, stuck, zombie,\n"
                           "                                or listen MODULE (record its packets);\n"
                           "                                ready S, watchdog S: READY=1 after, WATCHDOG=1 every\n"
                           "                                S s; on a running one: hang, grow MIB, say TEXT"},
    {"unstick", cmd_unstick, "unstick DIR                   answer the waiting stuck reads"},
    {"ntpdate", cmd_ntpdate, "ntpdate DIR push TEXT | hold | release\n"
                             "                                queue an ntpdate answer, hold calls"},
    {"sound", cmd_sound, "sound DIR [mixer=on|off] [pcm=ok|fail]\n"
                         "                                the volume element; a speaker that fails"},
    {"show", cmd_show,
     "show DIR [console|init|watchdog|mcu|tools|daemons|stat|clock|sound]\n"
     "                                the board's state or a record"},
};

void help() {
  std::printf("usage: custodo-board COMMAND DIR ...\n"
              "       custodo-board --help | --version\n\n"
              "The simulated board of Custodo. DIR is the board root; keep it short (/tmp/cb1).\n\n");
  for (const Command& c : kCommands) std::printf("  %s\n", c.help);
}

}  // namespace

int main(int argc, char* argv[]) {
  const option kOptions[] = {{"help", no_argument, nullptr, 'h'},
                             {"version", no_argument, nullptr, 'V'},
                             {}};
  // "+": the options end at the command word, whose own options its command reads.
  for (int found; (found = getopt_long(argc, argv, "+hV", kOptions, nullptr)) != -1;) {
    if (found == 'V') {
      std::printf("custodo-board %s\n", CUSTODO_VERSION_TEXT);
      return 0;
    }
    help();
    return found == 'h' ? 0 : 1;
  }
  if (optind >= argc) {
    help();
    return 1;
  }
  std::string command = argv[optind];
  Args args(argv + optind + 1, argv + argc);
  if (command == "help") {
    help();
    return 0;
  }
  if (command == "__init") return cmd_board_init(args);
  for (const Command& c : kCommands)
    if (command == c.name) return c.run(args);
  return fail("unknown command '" + command + "' (see custodo-board --help)");
}
