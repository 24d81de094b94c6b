// GLib's headers name struct members "signals", which Qt's keyword macro would rewrite.
#pragma push_macro("signals")
#undef signals
#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#pragma pop_macro("signals")

#include "DesktopApplication.h"
#include "core/Log.h"

#include <QDir>
#include <QFile>

namespace {

QByteArray take(gchar *text)
{
    const QByteArray bytes(text);
    g_free(text);
    return bytes;
}

// One word for GLib's shell rules, whatever blanks and quotes it holds.
QByteArray quoted(const QByteArray &word)
{
    return take(g_shell_quote(word.constData()));
}

// A terminal application would need a terminal emulator to be chosen for it.
bool needsTerminal(GAppInfo *info)
{
    return G_IS_DESKTOP_APP_INFO(info) &&
           g_desktop_app_info_get_boolean(G_DESKTOP_APP_INFO(info), "Terminal");
}

} // namespace

DesktopApplication::DesktopApplication(GAppInfo *info)
    : m_info(G_APP_INFO(g_object_ref(info)), g_object_unref)
{}

QList<DesktopApplication> DesktopApplication::applicationsForMimeType(const QString &mimeType)
{
    gchar *type = g_content_type_from_mime_type(mimeType.toUtf8().constData());
    if (!type)
        return {};
    GAppInfo *preferred = g_app_info_get_default_for_type(type, FALSE);
    GList *all = g_app_info_get_all_for_type(type);
    g_free(type);

    QList<DesktopApplication> applications;
    const auto add = [&](GAppInfo *info) {
        if (!info || needsTerminal(info))
            return;
        for (const DesktopApplication &listed : std::as_const(applications)) {
            if (g_app_info_equal(listed.m_info.get(), info))
                return;
        }
        applications << DesktopApplication(info);
    };
    add(preferred);
    for (GList *item = all; item; item = item->next)
        add(G_APP_INFO(item->data));
    g_list_free_full(all, g_object_unref);
    g_clear_object(&preferred);
    return applications;
}

QString DesktopApplication::desktopId() const
{
    return QString::fromUtf8(g_app_info_get_id(m_info.get()));
}

QString DesktopApplication::name() const
{
    return QString::fromUtf8(g_app_info_get_name(m_info.get()));
}

// Started by GLib's spawn rather than by GIO's launching: GIO hands every program to a helper
// that runs it in turn, so it answers that the helper started even when the program cannot.
// As GIO does, the Exec line's codes are replaced by quoted words and the line split by GLib's
// shell rules; no shell runs.
bool DesktopApplication::launch(const QString &path) const
{
    if (!G_IS_DESKTOP_APP_INFO(m_info.get()))
        return false;
    GDesktopAppInfo *info = G_DESKTOP_APP_INFO(m_info.get());
    const QByteArray exec = take(g_desktop_app_info_get_string(info, "Exec"));
    if (exec.trimmed().isEmpty()) // started over the bus only; not ours to do
        return false;
    const QByteArray file = QFile::encodeName(path);
    QByteArray line;
    bool fileGiven = false;
    for (qsizetype i = 0; i < exec.size(); ++i) {
        if (exec[i] != '%' || i + 1 == exec.size()) {
            line += exec[i];
            continue;
        }
        switch (exec[++i]) {
        case 'f':
        case 'F':
        case 'u':
        case 'U':
            line += quoted(file);
            fileGiven = true;
            break;
        case 'i':
            if (const QByteArray icon = take(g_desktop_app_info_get_string(info, "Icon"));
                !icon.isEmpty())
                line += "--icon " + quoted(icon);
            break;
        case 'c':
            line += quoted(g_app_info_get_name(m_info.get()));
            break;
        case 'k':
            line += quoted(g_desktop_app_info_get_filename(info));
            break;
        case '%':
            line += '%';
            break;
        default: // deprecated and unknown codes are dropped
            break;
        }
    }
    if (!fileGiven)
        line += ' ' + quoted(file);

    gchar **argv = nullptr;
    GError *error = nullptr;
    // Without a reaping flag GLib detaches the program, and reports here an exec that failed.
    const bool started =
        g_shell_parse_argv(line.constData(), nullptr, &argv, &error) &&
        g_spawn_async(QFile::encodeName(QDir::homePath()).constData(), argv, nullptr,
                      G_SPAWN_SEARCH_PATH, nullptr, nullptr, nullptr, &error);
    g_strfreev(argv);
    if (!started) {
        mylog(QStringLiteral("VantrelLog : share sheet: %1 did not start: %2")
                  .arg(desktopId(), QString::fromUtf8(error->message)));
        g_error_free(error);
    }
    return started;
}
