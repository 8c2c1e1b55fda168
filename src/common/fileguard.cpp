// A run knows most of its inputs before it opens the first output, so a look at the files that are open is enough: an output
// is opened without truncating it, and is truncated only when its identity is that of no other file of the run.
//
// The hard case is an output that is open while inputs are still to come: the cross-reference, the report, the debug file,
// errors that are redirected. An include file named later may be one of them. For that case what the file held is kept in
// memory, and is put back when the input is opened, which then reads it as if nothing had been. A file above KEPT_MAX isn't
// kept: nobody includes such a one, and an old debug file may be as large.
#include "common/fileguard.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "common/xalloc.h"

enum : off_t { KEPT_MAX = off_t{64} << 20 };

struct file_id_t {
    dev_t device;
    ino_t inode;
    bool operator==(const file_id_t &) const = default;
};

struct output_t {
    file_id_t id;
    const char *path;
    int fd;                           // of the stream, as long as that is open
    void (*lost)(const char *path);   // null: all inputs are known
    off_t size;                       // of the file before
    char *content;                    // what has been truncated; null if nothing has
};

static struct {
    file_id_t *inputs;
    output_t *outputs;
    size_t input_count, input_room, output_count, output_room;
    void (*tell)(const char *line);
    const char *beside, *place;   // a file that is written beside its place; null: none
    const char *refusal;          // why the last output was refused; null if it wasn't
} st;

// Whether it is a regular file; only those have an identity that matters.
static bool identify(int fd, file_id_t *id, off_t *size = nullptr)
{
    struct stat info;
    if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))
        return false;
    *id = {info.st_dev, info.st_ino};
    if (size)
        *size = info.st_size;
    return true;
}

static bool refuse(const char *why)
{
    st.refusal = why;
    errno = EBUSY;
    return false;
}

// An output that its owner has opened before, or null: a name that an option gives twice.
static output_t *opened_before(const output_t &o)
{
    for (size_t i = 0; i < st.output_count; i++) {
        output_t *before = &st.outputs[i];
        if (before->id == o.id && o.lost && before->lost == o.lost && strcmp(before->path, o.path) == 0)
            return before;
    }
    return nullptr;
}

static bool is_free(const file_id_t &id)
{
    for (size_t i = 0; i < st.input_count; i++)
        if (st.inputs[i] == id)
            return refuse("it is read in this run");
    for (size_t i = 0; i < st.output_count; i++)
        if (st.outputs[i].id == id)
            return refuse("it is another output of this run");
    return true;
}

static void add_input(const file_id_t &id)
{
    if (st.input_count && st.inputs[st.input_count - 1] == id)
        return;
    xreserve(st.inputs, st.input_count, st.input_count + 1, st.input_room, size_t{16});
    st.inputs[st.input_count++] = id;
}

// `in`: the input that is the file; it may have the number that a stream now closed had.
static void put_back(const output_t &o, int in)
{
    file_id_t id;
    const int fd = open(o.path, O_WRONLY | O_CLOEXEC);
    if (fd >= 0 && identify(fd, &id) && id == o.id && ftruncate(fd, o.content ? 0 : o.size) == 0)
        for (off_t done = 0; o.content && done < o.size;) {
            const ssize_t n = write(fd, o.content + done, static_cast<size_t>(o.size - done));
            if (n <= 0)
                break;
            done += n;
        }
    if (fd >= 0)
        close(fd);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0) {
        if (o.fd != in && identify(o.fd, &id) && id == o.id)
            dup2(nowhere, o.fd);
        close(nowhere);
    }
}

void guard_input(int fd)
{
    struct stat info;
    if (fstat(fd, &info) == 0)
        guard_input(fd, info);
}

void guard_input(int fd, const struct stat &info)
{
    if (!S_ISREG(info.st_mode))
        return;
    const file_id_t id = {info.st_dev, info.st_ino};
    add_input(id);
    for (size_t i = 0; i < st.output_count; i++) {
        const output_t o = st.outputs[i];
        if (!o.lost || !(o.id == id))
            continue;
        st.outputs[i] = st.outputs[--st.output_count];
        put_back(o, fd);
        refuse("it is read in this run");
        o.lost(o.path);
        return;
    }
}

void guard_source(const char *path)
{
    struct stat info;
    if (stat(path, &info) == 0 && S_ISREG(info.st_mode))
        add_input({info.st_dev, info.st_ino});
}

// What the file holds, or null.
static char *content_of(const char *path, off_t size)
{
    FILE *in = size > 0 && size <= KEPT_MAX ? fopen(path, "r") : nullptr;
    if (!in)
        return nullptr;
    char *content = static_cast<char *>(xalloc(static_cast<size_t>(size)));
    const size_t n = fread(content, 1, static_cast<size_t>(size), in);
    fclose(in);
    return n == static_cast<size_t>(size) ? content : nullptr;
}

static void add_output(const output_t &o)
{
    xreserve(st.outputs, st.output_count, st.output_count + 1, st.output_room, size_t{8});
    st.outputs[st.output_count++] = o;
}

FILE *guard_open(const char *path, const char *mode, void (*lost)(const char *path))
{
    const bool append = *mode == 'a';
    st.refusal = nullptr;
    const int fd = open(path, O_WRONLY | O_CREAT | O_CLOEXEC | (append ? O_APPEND : 0), 0666);
    if (fd < 0)
        return nullptr;
    output_t o = {{}, path, fd, lost, 0, nullptr};
    const bool regular = identify(fd, &o.id, &o.size);
    output_t *again = regular ? opened_before(o) : nullptr;
    bool good = !regular || again || is_free(o.id);
    if (good && regular && !append) {
        if (lost && !(o.content = content_of(path, o.size)))
            o.size = 0;
        good = ftruncate(fd, 0) == 0;
    }
    FILE *stream = good ? fdopen(fd, mode) : nullptr;
    if (!stream) {
        const int why = errno;
        close(fd);
        errno = why;
    } else if (again) {   // what it held before either of the two
        if (again->content)
            o.content = again->content;
        o.size = again->size;
        *again = o;
    } else if (regular) {
        add_output(o);
    }
    return stream;
}

bool guard_close(FILE *stream)
{
    errno = 0;
    const bool arrived = fflush(stream) == 0 && !ferror(stream);
    const int why = errno;
    if (fclose(stream) == 0 && arrived)
        return true;
    if (why || !errno)
        errno = why ? why : EIO;   // the write that failed may be long ago
    return false;
}

static void drop_beside()
{
    if (st.beside)
        unlink(st.beside);
    st.beside = nullptr;
}

FILE *guard_open_beside(const char *path)
{
    struct stat info;
    if (stat(path, &info) == 0 && !S_ISREG(info.st_mode))
        return guard_open(path, "w");
    if (!guard_allows(path))
        return nullptr;
    char *name = xsprintf("%s.XXXXXX", path);
    const int fd = mkostemp(name, O_CLOEXEC);
    if (fd < 0)
        return nullptr;
    st.beside = name;
    st.place = path;
    atexit(drop_beside);   // a fatal message ends the run
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    return fdopen(fd, "w");
}

bool guard_close_beside(FILE *stream)
{
    output_t o = {{}, st.place, -1, nullptr, 0, nullptr};
    if (st.beside)
        identify(fileno(stream), &o.id);
    bool good = guard_close(stream);
    if (!st.beside)
        return good;
    good = good && rename(st.beside, st.place) == 0;
    const int why = errno;
    if (good) {
        st.beside = nullptr;
        add_output(o);
    }
    drop_beside();
    errno = why;
    return good;
}

bool guard_allows(const char *path)
{
    struct stat info;
    st.refusal = nullptr;
    return stat(path, &info) != 0 || !S_ISREG(info.st_mode) || is_free({info.st_dev, info.st_ino});
}

void guard_set_tell(void (*tell)(const char *line)) { st.tell = tell; }

void guard_perror(const char *path)
{
    const int why = errno;   // messages behind it show that, too
    const std::string line = std::string(path) + ": " + (st.refusal ? st.refusal : strerror(why));
    if (st.tell)
        st.tell(line.c_str());
    else
        fprintf(stderr, "%s\n", line.c_str());
    errno = why;
}

bool guard_refused() { return st.refusal; }
