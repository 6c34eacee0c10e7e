#include "app/options.h"

#include <QString>

#include <climits>
#include <cstring>

Options Options::analyser(int argc, const char *const argv[])
{
    Options options;
    if (argc < 2)
        return options;
    for (int i = 1; i < argc; ++i) {
        const char *argument = argv[i];
        if (std::strcmp(argument, "-v") == 0)
            options.verbeux = true;
        if (std::strcmp(argument, "-log") == 0)
            ++options.nbLog;
        if (std::strcmp(argument, "--help") == 0)
            options.aide = true;
        if (std::strcmp(argument, "--version") == 0)
            options.version = true;
        if (std::strcmp(argument, "-periode") == 0) {
            // argv[argc] is the terminating null: an empty text, not a number.
            bool ok = false;
            const int periode = QString::fromLocal8Bit(argv[i + 1]).toInt(&ok, 10);
            if (ok)
                options.periode = periode;
            ++i;
        }
    }
    return options;
}

int Options::intervalleMs() const
{
    const long long ms = static_cast<long long>(periode) * 1000;
    if (ms > INT_MAX)
        return INT_MAX;
    if (ms < INT_MIN)
        return INT_MIN;
    return static_cast<int>(ms);
}

const char *Options::texteAide()
{
    return "Usage: acquisitionradio [-v] [-log] [-periode SECONDS]\n"
           "       acquisitionradio --help | --version\n"
           "\n"
           "Radio acquisition service of the iTessalin data logger. Receives the UDP frames of\n"
           "the radio modules (port 5042), keeps their state in /var/base/hf.db and in the\n"
           "shared segment Zone_HF, supervises the border router, and every period publishes\n"
           "each radio channel's value to the main application. Runs until it is stopped.\n"
           "\n"
           "Options:\n"
           "  -v                accepted, changes nothing\n"
           "  -log              also write the trace lines to standard error\n"
           "  -periode SECONDS  seconds between two acquisition cycles (default 20)\n"
           "  --help            print this text and exit\n"
           "  --version         print the version and exit\n"
           "Any other argument is ignored.\n"
           "\n"
           "Environment (unset on the appliance):\n"
           "  ACQUISITIONRADIO_RACINE   directory put in front of every file and command below\n"
           "  ACQUISITIONRADIO_ADRESSE  IPv6 address the UDP socket binds to\n"
           "  ACQUISITIONRADIO_PORT     UDP port bound instead of 5042\n"
           "  TMPDIR                    directory of the shared segments' key files (default\n"
           "                            /tmp): must be the main application's\n"
           "\n"
           "Files and commands:\n"
           "  /var/base/hf.db                radio database (created at start)\n"
           "  /var/base/itessalin.db         device database (channel types, read)\n"
           "  /root/br_itessalin.txt         border-router address (read)\n"
           "  /var/log/aradio_val0.txt       log file\n"
           "  /var/log/acquisitionrj45.log   connection log\n"
           "  /run/acquisitionradio.lock     one-instance lock, with the pid and start time\n"
           "  /etc/init.d/tunslip6 stop|start, /etc/scripts/reset_br.sh,\n"
           "  /etc/scripts/repair_br.sh      run to restart the tunnel and the border router\n"
           "Shared segments, made by the main application: Zone_HF, Demande_enreg,\n"
           "Config_Voies_iTessalin, Config_iTessalin, Etat_iTessalin.\n"
           "\n"
           "Messages go to standard error. Exit status 1: another instance already runs on the\n"
           "same root (the message names its pid).\n";
}

const char *Options::texteVersion()
{
    return "acquisitionradio " ACQUISITIONRADIO_VERSION "\n";
}
