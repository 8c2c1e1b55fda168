// streams: the three descriptors that every program takes for granted.
//
// A program may be started with some of them closed. The next file that it opens then takes the number, and messages land in
// the middle of an object file. A header of its own without a source, so that the tools can have it without any library.
#pragma once

#include <fcntl.h>

#include <csignal>

// Opens /dev/null on those of the descriptors 0 to 2 that are closed: the first thing that a program does. A limit on the
// size of files becomes an error of the write that meets it, and ends the program no longer. False if /dev/null is missing.
inline bool streams_complete()
{
    signal(SIGXFSZ, SIG_IGN);
    for (int fd = 0; fd <= 2; fd++)
        if (fcntl(fd, F_GETFD) < 0 &&
            open("/dev/null", O_RDWR) != fd)   // the lowest number that is free, as those below are open
            return false;
    return true;
}
