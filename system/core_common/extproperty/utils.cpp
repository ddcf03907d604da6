// SPDX-License-Identifier: Apache-2.0
#include "utils.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wchar.h>

#include <android-base/chrono_utils.h>
#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/properties.h>
#include <android-base/strings.h>
#include <cutils/properties.h>
#include <selinux/android.h>

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::unique_fd;

namespace {

constexpr char kImportKeyword[] = "import ";
constexpr size_t kImportKeywordLen = sizeof(kImportKeyword) - 1;
constexpr size_t kReadChunkSize = 1024;

// Whitespace of the property-file syntax: blank, and tab through carriage return.
bool IsPropertySpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

char* SkipSpace(char* p) {
    while (IsPropertySpace(*p)) ++p;
    return p;
}

// Cuts whitespace at the end of the bytes from |begin| to just before |end|,
// never cutting the first byte.
void CutTrailingSpace(char* begin, char* end) {
    for (char* p = end - 1; p > begin && IsPropertySpace(*p); --p) *p = '\0';
}

// Cuts the line that starts at |line| at its line feed |eol| and returns its
// text: leading whitespace skipped, trailing whitespace cut. The trailing
// whitespace is that of the line's bytes as they stand; a NUL is not
// whitespace, so a blank before a NUL stays, and the NUL then ends the text.
char* LineText(char* line, char* eol) {
    *eol = '\0';
    char* text = SkipSpace(line);
    CutTrailingSpace(text, eol);
    return text;
}

bool FilterAccepts(const char* filter, size_t filter_len, const char* name) {
    if (filter_len == 0) return true;
    if (filter[filter_len - 1] == '*') return strncmp(name, filter, filter_len - 1) == 0;
    return strcmp(name, filter) == 0;
}

void StoreProperty(const char* name, const char* value, PropertyMap* properties) {
    std::string key(name);
    auto it = properties->lower_bound(key);
    if (it == properties->end() || it->first != key) {
        properties->emplace_hint(it, std::move(key), value);
    } else if (it->second != value) {
        LOG(WARNING) << "Overriding previous 'ro.' property '" << key << "':'" << it->second
                     << "' with new value '" << value << "'";
        it->second = value;
    }
}

void LoadImport(char* import_args, PropertyMap* properties) {
    char* filename = SkipSpace(import_args);
    char* nested_filter = strchr(filename, ' ');
    if (nested_filter != nullptr) {
        *nested_filter++ = '\0';
        nested_filter = SkipSpace(nested_filter);
    }

    auto expanded = ExpandProps(filename);
    if (!expanded.ok()) {
        LOG(ERROR) << "Could not expand filename ': " << expanded.error();
        return;
    }
    if (access(expanded->c_str(), F_OK) != 0) return;
    if (!load_properties_from_file_without_se(expanded->c_str(), nested_filter, properties)) {
        LOG(ERROR) << "expand filename load failed : " << *expanded;
    }
}

// Parses |data| (which ends with "\n" and a NUL) line by line, cutting lines,
// names and values in place.
void LoadPropertiesFromBuffer(char* data, size_t size, const char* filter,
                              PropertyMap* properties) {
    const size_t filter_len = filter != nullptr ? strlen(filter) : 0;
    char* const end = data + size;
    char* line = data;
    while (char* eol = static_cast<char*>(memchr(line, '\n', end - line))) {
        char* key = LineText(line, eol);
        line = eol + 1;
        if (*key == '#') continue;

        if (filter_len == 0 && strncmp(key, kImportKeyword, kImportKeywordLen) == 0) {
            LoadImport(key + kImportKeywordLen, properties);
            continue;
        }

        char* value = strchr(key, '=');
        if (value == nullptr) continue;
        *value = '\0';
        CutTrailingSpace(key, value);
        value = SkipSpace(value + 1);

        if (!FilterAccepts(filter, filter_len, key)) continue;
        StoreProperty(key, value, properties);
    }
}

}  // namespace

bool load_properties_from_file_without_se(const char* filename, const char* filter,
                                          PropertyMap* properties) {
    android::base::Timer t;
    auto file_contents = ReadFile(filename);
    if (!file_contents.ok()) {
        LOG(WARNING) << "Couldn't load property file '" << filename
                     << "': " << file_contents.error();
        return false;
    }
    file_contents->push_back('\n');
    LoadPropertiesFromBuffer(file_contents->data(), file_contents->size(), filter, properties);
    // LOG(VERBOSE) formats its message only when ShouldLog(VERBOSE) holds.
    LOG(VERBOSE) << "(Loading properties from " << filename << " took " << t << ".)";
    return true;
}

std::string load_property_from_file(const char* filename, const char* name) {
    auto file_contents = ReadFile(filename);
    if (!file_contents.ok()) {
        LOG(WARNING) << "Couldn't load property file '" << filename
                     << "': " << file_contents.error();
        return "";
    }
    file_contents->push_back('\n');

    const size_t name_len = strlen(name);
    char* const end = file_contents->data() + file_contents->size();
    char* line = file_contents->data();
    while (char* eol = static_cast<char*>(memchr(line, '\n', end - line))) {
        char* key = LineText(line, eol);
        line = eol + 1;
        if (*key == '#') continue;
        if (strncmp(key, name, name_len) != 0) continue;
        char* value = strchr(key, '=');
        if (value == nullptr) continue;
        value = SkipSpace(value + 1);
        LOG(WARNING) << "Loading property from " << filename << ": " << value;
        return value;
    }
    LOG(WARNING) << "Loading property from " << filename << " failed ";
    return "";
}

Result<std::string> ExpandProps(const std::string& src) {
    std::string dst;
    size_t pos = 0;
    while (true) {
        const size_t dollar = src.find('$', pos);
        if (dollar == std::string::npos) {
            dst.append(src, pos, std::string::npos);
            return dst;
        }
        dst.append(src, pos, dollar - pos);
        pos = dollar + 1;
        if (pos == src.size()) return dst;  // a lone trailing '$' is dropped
        if (src[pos] == '$') {
            dst.push_back('$');
            ++pos;
            continue;
        }
        if (src[pos] != '{') {
            return Error() << "using deprecated syntax for specifying property '" << src.substr(pos)
                           << "', use ${name} instead";
        }

        const size_t close = src.find('}', pos + 1);
        if (close == std::string::npos) {
            return Error() << "unexpected end of string in '" << src << "', looking for }";
        }
        std::string name = src.substr(pos + 1, close - pos - 1);
        std::string default_value;
        pos = close + 1;
        // Only a ":-" with a non-empty name before it and a non-empty default
        // after it splits the reference; "a:-" and ":-b" are whole names.
        for (size_t sep = name.find(":-", 1); sep != std::string::npos;
             sep = name.find(":-", sep + 1)) {
            if (sep + 2 < name.size()) {
                default_value = name.substr(sep + 2);
                name.resize(sep);
                break;
            }
        }

        if (name.empty()) {
            return Error() << "invalid zero-length property name in '" << src << "'";
        }
        std::string value = android::base::GetProperty(name, "");
        if (value.empty()) {
            if (default_value.empty()) {
                return Error() << "property '" << name << "' doesn't exist while expanding '" << src
                               << "'";
            }
            value = std::move(default_value);
        }
        dst.append(value);
    }
}

bool IsLegalPropertyName(const std::string& name) {
    if (name.empty() || name.front() == '.' || name.back() == '.') return false;
    for (size_t i = 0; i < name.size(); ++i) {
        const char c = name[i];
        if (c == '.') {
            if (name[i - 1] == '.') return false;  // i > 0: the first byte isn't '.'
            continue;
        }
        if (c == '_' || c == '-' || c == '@' || c == ':') continue;
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) continue;
        return false;
    }
    return true;
}

Result<void> IsLegalPropertyValue(const std::string& name, const std::string& value) {
    if (value.size() >= PROPERTY_VALUE_MAX && !android::base::StartsWith(name, "ro.")) {
        return Error() << "Property value too long";
    }
    // Every byte is checked, also past a NUL (mbstowcs would stop there); a
    // sequence cut off by the end of the value is invalid as well.
    mbstate_t state = {};
    for (size_t i = 0; i < value.size();) {
        const size_t n = mbrtowc(nullptr, value.data() + i, value.size() - i, &state);
        if (n == static_cast<size_t>(-1) || n == static_cast<size_t>(-2)) {
            return Error() << "Value is not a UTF8 encoded string";
        }
        i += n == 0 ? 1 : n;
    }
    return {};
}

// Files are opened non-blocking everywhere: a FIFO in place of a file then
// reads as empty instead of stopping init until a writer appears. Regular
// files and block devices don't notice the flag.
constexpr int kReadFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;

Result<std::string> ReadFile(const std::string& path) {
    unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), kReadFlags | O_NOFOLLOW)));
    if (fd == -1) return ErrnoError() << "open() failed";

    // Read straight into the result, sized from fstat: a regular file takes one
    // read for its bytes and one that sees its end. The spare byte leaves room
    // for the line feed that the parsers append.
    struct stat sb;
    const bool sized = fstat(fd.get(), &sb) != -1 && sb.st_size > 0;
    std::string content(sized ? static_cast<size_t>(sb.st_size) + 1 : kReadChunkSize, '\0');
    size_t length = 0;
    ssize_t n;
    while ((n = TEMP_FAILURE_RETRY(read(fd.get(), &content[length], content.size() - length))) >
           0) {
        length += n;
        if (length == content.size()) content.resize(content.size() * 2);
    }
    if (n != 0) return ErrnoError() << "Unable to read file contents";
    content.resize(length);
    return content;
}

bool ReadFileToStringNoFollow(const std::string& path, std::string* content) {
    content->clear();
    unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), kReadFlags | O_NOFOLLOW)));
    return fd != -1 && android::base::ReadFdToString(fd, content);
}

Result<void> WriteFile(const std::string& path, const std::string& content) {
    // Created here, or rewritten in place (keeping owner and mode, as a
    // truncating open would). The state files are tiny, but a full partition
    // must neither leave an empty new file nor destroy the old content.
    constexpr int kFlags = O_WRONLY | O_NOFOLLOW | O_CLOEXEC;
    bool created = true;
    unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), kFlags | O_CREAT | O_EXCL, 0600)));
    if (fd == -1 && errno == EEXIST) {
        created = false;
        fd.reset(TEMP_FAILURE_RETRY(open(path.c_str(), kFlags)));
    }
    if (fd == -1) return ErrnoError() << "open() failed";

    // A device or pipe in place of the file has no space to reserve and no
    // length to cut: it is written to as it stands.
    struct stat st;
    const bool regular = fstat(fd.get(), &st) == 0 && S_ISREG(st.st_mode);
    // Space first, so that a full partition fails before anything changes.
    const bool reserved = !regular || content.empty() ||
                          fallocate(fd.get(), 0, 0, content.size()) == 0 ||
                          errno == EOPNOTSUPP || errno == ENOSYS;
    if (!reserved || !::WriteStringToFd(content, fd) ||
        (regular && ftruncate(fd.get(), content.size()) != 0)) {
        const int saved_errno = errno;
        if (created) unlink(path.c_str());
        return Error(saved_errno) << "Unable to write file contents";
    }
    return {};
}

Result<std::string> ReadFileWithOffset(const std::string& path, int offset, int length) {
    unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), kReadFlags)));
    if (fd == -1) return ErrnoError() << "open() failed";
    std::string content;
    if (!ReadFdToStringWithOffset(fd.get(), &content, offset, length)) {
        return ErrnoError() << "Unable to read file contents";
    }
    return content;
}

bool ReadFdToStringWithOffset(int fd, std::string* content, int offset, int length) {
    content->clear();
    struct stat sb;
    if (fstat(fd, &sb) != -1 && sb.st_size > 0) content->reserve(sb.st_size);

    if (lseek(fd, offset, SEEK_SET) == -1) {
        LOG(ERROR) << "lseek() failed";
        return false;
    }
    char buf[kReadChunkSize] = {};
    // One read into a fixed buffer: a longer request would overflow it.
    CHECK(length >= 0 && static_cast<size_t>(length) <= sizeof(buf))
            << "read of " << length << " bytes overflows a " << sizeof(buf) << "-byte buffer";
    const ssize_t n = TEMP_FAILURE_RETRY(read(fd, buf, length));
    // Exactly |length| bytes, whatever the read returned: missing bytes are zeros.
    content->append(buf, length);
    return n >= 0;
}

bool WriteStringToFile(const std::string& content, const std::string& path, bool follow_symlinks) {
    const int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | (follow_symlinks ? 0 : O_NOFOLLOW);
    unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), flags, 0666)));
    if (fd == -1) return false;
    if (!::WriteStringToFd(content, fd)) {
        unlink(path.c_str());
        return false;
    }
    return true;
}

bool WriteStringToFd(const std::string& content, android::base::borrowed_fd fd) {
    const char* p = content.data();
    size_t left = content.size();
    while (left > 0) {
        const ssize_t n = TEMP_FAILURE_RETRY(write(fd.get(), p, left));
        if (n == -1) return false;
        p += n;
        left -= n;
    }
    return true;
}

std::string trimPath(std::string path) {
    if (path.empty() || path.front() != '/') path.insert(0, "/");
    if (path.back() == '/') path.pop_back();
    return path;
}

std::string getPathName(std::string path) {
    if (path.empty() || path.front() != '/') path.insert(0, "/");
    while (path.back() != '/') path.pop_back();  // stops at the leading '/'
    if (path.size() > 1) path.pop_back();
    return path;
}

int createCotaDirectory(std::string path) {
    if (path.empty()) return -1;

    const size_t slash = path.rfind('/');
    const std::string parent = slash == std::string::npos ? path : path.substr(0, slash);
    LOG(INFO) << "create path: " << path << " sub dir: " << parent;

    if (access(parent.c_str(), F_OK) != 0) {
        // A relative name without '/' is its own parent: creating it first
        // would recurse without end, so it counts as a parent that can't be made.
        const int result = parent == path ? -1 : createCotaDirectory(parent);
        if (result == 0) return createCotaDirectory(path);
        LOG(ERROR) << "create sub dir failed: " << parent;
        return result;
    }

    const int result = mkdir(path.c_str(), 0755);
    if (result != 0) {
        LOG(ERROR) << "make dir failed: " << path;
        return result;
    }
    if (lchown(path.c_str(), 0, 0) == -1) {
        LOG(ERROR) << "Unable to chown file: " << path;
    }
    if (selinux_android_restorecon(path.c_str(), SELINUX_ANDROID_RESTORECON_RECURSE) < 0) {
        LOG(ERROR) << "Failed to restorecon: " << path;
    }
    return 0;
}
