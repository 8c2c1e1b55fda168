// archive: zip archives through miniz, or through libzip where miniz isn't packaged.
//
// Both do the same steps, and each step that fails has a result of its own. miniz writes as it goes: it makes the file at
// once, and appending overwrites the old directory. libzip does nothing before the archive is closed and then replaces the
// file as a whole. So that a failure shows at its own step there, the file is opened for writing beforehand; ending an
// archive is no step of its own.
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

#include <zip.h>

// Takes over `in`.
static bool add_stream(zip_t *zip, const char *member, FILE *in)
{
    zip_source_t *source = zip_source_filep(zip, in, 0, -1);
    if (!source) {
        fclose(in);
        return false;
    }
    zip_int64_t index = zip_file_add(zip, member, source, ZIP_FL_OVERWRITE);
    if (index < 0)
        zip_source_free(source);
    return index >= 0 &&
           zip_set_file_compression(zip, static_cast<zip_uint64_t>(index), ZIP_CM_DEFLATE, COMPRESSION_LEVEL) == 0;
}

static archive_result_t add_and_close(zip_t *zip, const char *member, const char *file)
{
    FILE *in = fopen(file, "rb");
    bool added = in && add_stream(zip, member, in);
    if (added && zip_close(zip) == 0)
        return ARCHIVE_DONE;
    zip_discard(zip);
    return added ? ARCHIVE_NOT_FINALIZED : ARCHIVE_NOT_ADDED;
}

archive_result_t archive_add(const char *archive, const char *member, const char *file)
{
    bool append = file_exists(archive);
    zip_t *zip = append ? zip_open(archive, 0, nullptr) : nullptr;
    if (append && !zip)
        return ARCHIVE_NO_READER;
    FILE *writable = fopen(archive, append ? "r+b" : "wb");
    if (writable)
        fclose(writable);
    else if (append)
        zip_discard(zip);
    if (!writable)
        return append ? ARCHIVE_NO_APPENDER : ARCHIVE_NO_WRITER;
    if (!append && !(zip = zip_open(archive, ZIP_TRUNCATE, nullptr)))
        return ARCHIVE_NO_WRITER;
    archive_result_t result = add_and_close(zip, member, file);
    if (result != ARCHIVE_DONE && !append)
        remove(archive);
    return result;
}

#endif

const char *archive_member_name(const char *path)
{
    path = cache_translate(path, "\\", "/");
    return path_is_absolute(path) ? cache_concat("SYSTEM_ROOT", path) : path;
}
