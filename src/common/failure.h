// failure: what memory, strings and containers do when they can't go on.
//
// Messages are made of these, so these don't know messages: `alert` stands above them and takes what they have to tell.
#pragma once

struct failure_services_t {
    void (*no_memory)();                                                                // message 296, and ends the run
    void (*assertion)(unsigned number, const char *text, const char *file, int line);   // messages 1501 to 1503
    void (*stop)(int status);                                                           // ends the run
};
extern const failure_services_t *failure_services;   // alert's; null in a program that has no messages

[[noreturn]] void failure_no_memory();
[[noreturn]] void failure_stop(int status);
