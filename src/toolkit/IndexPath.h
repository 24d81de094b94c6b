#pragma once

#include <QDebug>
#include <QHashFunctions>

// A row's place in the table: one section, rows counted from 0.
struct IndexPath
{
    int section { 0 };
    int row { 0 };

    friend bool operator==(const IndexPath &, const IndexPath &) = default;
    friend auto operator<=>(const IndexPath &, const IndexPath &) = default;
};

inline size_t qHash(const IndexPath &path, size_t seed = 0)
{
    return qHashMulti(seed, path.section, path.row);
}

inline QDebug operator<<(QDebug debug, const IndexPath &path)
{
    QDebugStateSaver saver(debug);
    debug.nospace() << "IndexPath(" << path.section << ", " << path.row << ')';
    return debug;
}
