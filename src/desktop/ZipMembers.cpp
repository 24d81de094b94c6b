#include "ZipMembers.h"

#include <QFile>
#include <zip.h>

ZipMembers zipMemberNames(const QString &path)
{
    int code = ZIP_ER_OK;
    zip_t *archive = zip_open(QFile::encodeName(path).constData(), ZIP_RDONLY, &code);
    if (!archive) {
        zip_error_t error;
        zip_error_init_with_code(&error, code);
        const QString text = QString::fromLocal8Bit(zip_error_strerror(&error));
        zip_error_fini(&error);
        return ZipMembers { {}, text };
    }
    ZipMembers members;
    const zip_int64_t count = zip_get_num_entries(archive, 0);
    members.names.reserve(qsizetype(count));
    for (zip_int64_t i = 0; i < count; ++i) {
        // Guessing honours the UTF-8 flag and Info-ZIP's Unicode path field, and reads names
        // that are not UTF-8 as code page 437, as DOS and Windows archivers write them.
        const char *name = zip_get_name(archive, zip_uint64_t(i), ZIP_FL_ENC_GUESS);
        if (!name) {
            members = ZipMembers { {}, QString::fromLocal8Bit(zip_strerror(archive)) };
            break;
        }
        members.names << QString::fromUtf8(name);
    }
    zip_discard(archive); // opened for reading: there is nothing to write back
    return members;
}
