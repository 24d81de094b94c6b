#pragma once

#include "AudioDecoder.h"

#include <QString>
#include <QtGlobal>
#include <vector>

// FFmpeg's atempo filter as a libavfilter graph: abuffer, atempo, aformat, abuffersink. It
// lives in the module "vantrel-tempo", because libavfilter brings some megabytes of libraries
// of its own (speech synthesis voices among them) that a listener at the recording's own speed
// never needs; the program loads it at the first other speed.
class TempoGraph
{
public:
    virtual ~TempoGraph() = default;

    // Hands frames in, in the format the graph was made for; null data says the input has
    // ended. False with FFmpeg's reason.
    virtual bool write(const void *data, qint64 frames, QString *reason) = 0;
    // Appends to out whatever the filter has made so far. False with FFmpeg's reason.
    virtual bool read(std::vector<char> &out, QString *reason) = 0;
    // The sink has said it has nothing more.
    virtual bool drained() const = 0;
};

// The module's one entry point, found by this name: a graph for frames of the format, played
// at the rate; null with FFmpeg's reason.
using OpenTempoGraph = TempoGraph *(*)(const AudioDecoder::OutputFormat &format, double rate,
                                       QString *reason);
inline constexpr char kOpenTempoGraph[] = "vantrel_open_tempo_graph";
