#include "Data/Repository/EntityTable.h"

#include <array>

namespace quillo {

namespace {

// The declared types are those of files from earlier versions.
constexpr auto text = "VARCHAR";
constexpr auto integer = "INTEGER";
constexpr auto date = "TIMESTAMP";
constexpr auto real = "FLOAT";
constexpr auto blob = "BLOB";

using R = RecordFields;
// Columns shown in lists come first and long ones last, because a row is read only as far as needed.
const std::array recordColumns{
    Column<R>{"ZID", blob, &R::id},
    Column<R>{"ZCREATEDAT", date, &R::createdAt},
    Column<R>{"ZSTATUS", text, &R::status},
    Column<R>{"ZISFAVORITE", integer, &R::isFavorite},
    Column<R>{"ZISMEETINGMODE", integer, &R::isMeetingMode},
    Column<R>{"ZDURATIONMS", integer, &R::durationMs},
    Column<R>{"ZWORDCOUNT", integer, &R::wordCount},
    Column<R>{"ZSPEAKERCOUNT", integer, &R::speakerCount},
    Column<R>{"ZLANGUAGEDETECTED", text, &R::languageDetected},
    Column<R>{"ZSOURCEAPP", text, &R::sourceApp},
    Column<R>{"ZPENDINGAUDIOID", text, &R::pendingAudioId},
    Column<R>{"ZAUDIORETAINEDID", text, &R::audioRetainedId},
    Column<R>{"ZTITLE", text, &R::title},
    Column<R>{"ZTAGNAMESDATA", blob, &R::tagNamesData},
    Column<R>{"ZUSERID", text, &R::userId},
    Column<R>{"ZSESSIONID", text, &R::sessionId},
    Column<R>{"ZMETRICSSERVERID", text, &R::metricsServerId},
    Column<R>{"ZMETRICSREPORTED", integer, &R::metricsReported},
    Column<R>{"ZDIARIZATIONTASKID", text, &R::diarizationTaskId},
    Column<R>{"ZCLIENTRECORDINGID", text, &R::clientRecordingId},
    Column<R>{"ZRETRYCOUNT", integer, &R::retryCount},
    Column<R>{"ZLASTRETRYAT", date, &R::lastRetryAt},
    Column<R>{"ZEMPTYRESULTCOUNT", integer, &R::emptyResultCount},
    Column<R>{"ZWASLIMITCAPPED", integer, &R::wasLimitCapped},
    Column<R>{"ZMEETINGSWITCHTIMESTAMP", real, &R::meetingSwitchTimestamp},
    Column<R>{"ZSYNCEDAT", date, &R::syncedAt},
    Column<R>{"ZSOURCEDEVICE", text, &R::sourceDevice},
    Column<R>{"ZUPDATEDAT", date, &R::updatedAt},
    Column<R>{"ZDETECTEDLANGUAGEMISMATCH", integer, &R::detectedLanguageMismatch},
    Column<R>{"ZMISMATCHDETECTEDLANGUAGE", text, &R::mismatchDetectedLanguage},
    Column<R>{"ZMISMATCHDETECTEDLANGUAGENAME", text, &R::mismatchDetectedLanguageName},
    Column<R>{"ZMISMATCHCONFIGUREDLANGUAGE", text, &R::mismatchConfiguredLanguage},
    Column<R>{"ZMISMATCHDISMISSED", integer, &R::mismatchDismissed},
    Column<R>{"ZTEXT", text, &R::text},
    Column<R>{"ZRAWTEXT", text, &R::rawText},
    Column<R>{"ZLIVEMEETINGLABELEDTEXT", text, &R::liveMeetingLabeledText},
    Column<R>{"ZLIVEMEETINGPLAINTEXT", text, &R::liveMeetingPlainText},
    Column<R>{"ZMEETINGSUMMARY", text, &R::meetingSummary},
    Column<R>{"ZMEETINGACTIONITEMS", text, &R::meetingActionItems},
    Column<R>{"ZMEETINGSEGMENTSDATA", blob, &R::meetingSegmentsData},
    Column<R>{"ZSPEAKERNAMESDATA", blob, &R::speakerNamesData},
    Column<R>{"ZCHANNELSEGMENTSDATA", blob, &R::channelSegmentsData},
    Column<R>{"ZTEXTVERSIONSDATA", blob, &R::textVersionsData},
};

using T = TagFields;
const std::array tagColumns{
    Column<T>{"ZID", blob, &T::id},
    Column<T>{"ZNAME", text, &T::name},
    Column<T>{"ZISAUTOTAG", integer, &T::isAutoTag},
    Column<T>{"ZCREATEDAT", date, &T::createdAt},
};

using S = AppSettingsFields;
const std::array settingsColumns{
    Column<S>{"ZUSERID", text, &S::userId},
    Column<S>{"ZSELECTEDLANGUAGES", blob, &S::selectedLanguages},
    Column<S>{"ZAUTODETECTLANGUAGE", integer, &S::autoDetectLanguage},
    Column<S>{"ZPUSHTOTALKKEYCODE", integer, &S::pushToTalkKeyCode},
    Column<S>{"ZPUSHTOTALKMODIFIERS", integer, &S::pushToTalkModifiers},
    Column<S>{"ZPUSHTOTALKDISPLAYSTRING", text, &S::pushToTalkDisplayString},
    Column<S>{"ZSELECTEDMICROPHONEID", text, &S::selectedMicrophoneId},
    Column<S>{"ZINSERTIONMODE", text, &S::insertionMode},
    Column<S>{"ZSHOWOVERLAY", integer, &S::showOverlay},
    Column<S>{"ZPLAYSOUNDS", integer, &S::playSounds},
    Column<S>{"ZLAUNCHATLOGIN", integer, &S::launchAtLogin},
    Column<S>{"ZPRIVACYMODE", integer, &S::privacyMode},
    Column<S>{"ZPROFESSION", text, &S::profession},
    Column<S>{"ZSOURCE", text, &S::source},
    Column<S>{"ZUSECASES", blob, &S::useCases},
    Column<S>{"ZONBOARDINGCOMPLETED", integer, &S::onboardingCompleted},
};

} // namespace

const EntityTable<RecordFields>& recordTable() {
    static const EntityTable<RecordFields> table{"TranscriptionRecord", "ZTRANSCRIPTIONRECORD", recordColumns};
    return table;
}

const EntityTable<TagFields>& tagTable() {
    static const EntityTable<TagFields> table{"Tag", "ZTAG", tagColumns};
    return table;
}

const EntityTable<AppSettingsFields>& appSettingsTable() {
    static const EntityTable<AppSettingsFields> table{"AppSettings", "ZAPPSETTINGS", settingsColumns};
    return table;
}

} // namespace quillo
