// archive: adds files to a zip archive.
#pragma once

// How far an addition came: the step that failed, or all of them done.
enum archive_result_t {
    ARCHIVE_DONE,
    ARCHIVE_NO_READER,     // an existing archive can't be read
    ARCHIVE_NO_APPENDER,   // an existing archive can't be written to
    ARCHIVE_NO_WRITER,     // a new archive can't be made
    ARCHIVE_NOT_ADDED,
    ARCHIVE_NOT_FINALIZED,
    ARCHIVE_NOT_ENDED,
};

// Puts the file `file` into the zip archive `archive` under the name `member`, compressed. An existing archive keeps what it
// has, a member of that name too; otherwise a new one is made, which goes again if that fails.
archive_result_t archive_add(const char *archive, const char *member, const char *file);

// The member name of the file `path`: the path, an absolute one below "SYSTEM_ROOT", with slashes for backslashes. Cached.
const char *archive_member_name(const char *path);
