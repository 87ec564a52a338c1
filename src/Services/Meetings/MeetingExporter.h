#pragma once

#include "Data/Models/MeetingSegment.h"

#include <QList>
#include <QMap>
#include <QString>

namespace quillo {

/// The transcript of a meeting as text. Pure functions, any thread.
///
/// `segments` are in the order of the transcript, with times in seconds; `speakerNames` maps a speaker's id to the name
/// the user gave; a speaker without one has the segment's own label. What would break a format is made harmless: names
/// are on one line, subtitles have no empty line and no "-->" within a text, a time below zero or undefined counts as
/// 0, and an end before its start counts as the start.
namespace MeetingExporter {

using Names = QMap<QString, QString>;

/// SubRip.
[[nodiscard]] QString exportSRT(const QList<MeetingSegment>& segments, const Names& speakerNames);
/// WebVTT (www.w3.org/TR/webvtt1), with "&", "<" and "-->" escaped.
[[nodiscard]] QString exportVTT(const QList<MeetingSegment>& segments, const Names& speakerNames);
/// One paragraph for each segment.
[[nodiscard]] QString exportTXT(const QList<MeetingSegment>& segments, const Names& speakerNames);

} // namespace MeetingExporter

} // namespace quillo
