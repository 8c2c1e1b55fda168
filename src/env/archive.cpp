// archive: zip archives through miniz, or through minizip where miniz isn't packaged.
//
// Both write as they go: they make the file at once, and appending overwrites the old directory. Each step that fails has a
// result of its own; minizip ends an archive in the step that finalizes it.
#include "env/archive.h"

#include <cstdio>

#include "common/stringcache.h"
#include "env/osdep.h"

constexpr unsigned COMPRESSION_LEVEL = 6;

#if ASZEL8_MINIZ

#include <miniz.h>

archive_result_t archive_add(const char *archive, const char *member, const char *file)
{
    constexpr unsigned LEVEL_AND_FLAGS = COMPRESSION_LEVEL | MZ_ZIP_FLAG_CASE_SENSITIVE;   // 262
    mz_zip_archive zip = {};
    if (!file_exists(archive)) {
        if (!mz_zip_writer_init_file(&zip, archive, 0))
            return ARCHIVE_NO_WRITER;
    } else {
        if (!mz_zip_reader_init_file(&zip, archive, 0))
            return ARCHIVE_NO_READER;
        if (!mz_zip_writer_init_from_reader(&zip, archive)) {
            mz_zip_reader_end(&zip);
            return ARCHIVE_NO_APPENDER;
        }
    }
    archive_result_t result = ARCHIVE_DONE;
    if (!mz_zip_writer_add_file(&zip, member, file, nullptr, 0, LEVEL_AND_FLAGS))
        result = ARCHIVE_NOT_ADDED;
    else if (!mz_zip_writer_finalize_archive(&zip))
        result = ARCHIVE_NOT_FINALIZED;
    if (!mz_zip_writer_end(&zip) && result == ARCHIVE_DONE)
        result = ARCHIVE_NOT_ENDED;
    return result;
}

#else

#include <minizip/unzip.h>
#include <minizip/zip.h>

#include <ctime>

#include <sys/stat.h>

static bool can_be_read(const char *archive)
{
    unzFile in = unzOpen64(archive);
    return in && unzClose(in) == UNZ_OK;
}

// The date and time that a member has: those of the file.
static zip_fileinfo date_of(FILE *file)
{
    zip_fileinfo info = {};
    struct stat st;
    const tm *t = fstat(fileno(file), &st) == 0 ? localtime(&st.st_mtime) : nullptr;
    if (t) {
        const auto n = [](int value) { return static_cast<unsigned>(value); };
        info.tmz_date = {n(t->tm_sec), n(t->tm_min), n(t->tm_hour), n(t->tm_mday), n(t->tm_mon), n(t->tm_year + 1900)};
    }
    return info;
}

static bool copy(zipFile zip, FILE *in)
{
    char buffer[16384];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, in)) > 0)
        if (zipWriteInFileInZip(zip, buffer, static_cast<unsigned>(n)) != ZIP_OK)
            return false;
    return !ferror(in);
}

static bool add(zipFile zip, const char *member, const char *file)
{
    FILE *in = fopen(file, "rb");
    if (!in)
        return false;
    const zip_fileinfo info = date_of(in);
    bool added = zipOpenNewFileInZip64(zip, member, &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED, COMPRESSION_LEVEL,
                                       1) == ZIP_OK;
    if (added) {
        added = copy(zip, in);
        added = zipCloseFileInZip(zip) == ZIP_OK && added;
    }
    fclose(in);
    return added;
}

archive_result_t archive_add(const char *archive, const char *member, const char *file)
{
    const bool append = file_exists(archive);
    if (append && !can_be_read(archive))
        return ARCHIVE_NO_READER;
    zipFile zip = zipOpen64(archive, append ? APPEND_STATUS_ADDINZIP : APPEND_STATUS_CREATE);
    if (!zip)
        return append ? ARCHIVE_NO_APPENDER : ARCHIVE_NO_WRITER;
    const bool added = add(zip, member, file), ended = zipClose(zip, nullptr) == ZIP_OK;
    if (!append && !(added && ended))
        remove(archive);
    return !added ? ARCHIVE_NOT_ADDED : ended ? ARCHIVE_DONE : ARCHIVE_NOT_FINALIZED;
}

#endif

const char *archive_member_name(const char *path)
{
    path = cache_translate(path, "\\", "/");
    return path_is_absolute(path) ? cache_concat("SYSTEM_ROOT", path) : path;
}
