#ifndef OPTIONS_H
#define OPTIONS_H

// What the daemon's command line asks for: "-v", "-log" and "-periode N", and
// "--help" and "--version", answered before the service is built.
struct Options
{
    static constexpr int PERIODE_DEFAUT = 20;

    bool aide = false;            // "--help"
    bool version = false;         // "--version"
    bool verbeux = false;         // "-v": accepted, changes nothing
    int nbLog = 0;                // each "-log" turns console logging on once more
    int periode = PERIODE_DEFAUT; // seconds between two acquisition cycles

    // Scans argv[1] .. argv[argc - 1]. "-periode" consumes the next argument
    // whether or not it is a number; a later value wins; anything unknown is
    // ignored.
    static Options analyser(int argc, const char *const argv[]);

    // The timer interval: period x 1000 ms, kept within what QTimer takes.
    int intervalleMs() const;

    // The texts printed for "--help" and "--version", each ending with a newline.
    static const char *texteAide();
    static const char *texteVersion();
};

#endif // OPTIONS_H
