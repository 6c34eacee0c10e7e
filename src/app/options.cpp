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
