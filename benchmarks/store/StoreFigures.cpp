// The history at its budgeted size: opening it, paging through it, searching it at every keystroke, saving to it, and
// the memory all of that takes. The number of records may be given as an argument.

#include "Core/LoggingService.h"
#include "Data/DataContainer.h"
#include "Data/Storage/Database.h"
#include "SampleHistory.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

using namespace quillo;

constexpr int64_t pageLength = 50;

double residentMegabytes() {
    QFile status(QStringLiteral("/proc/self/status"));
    if (status.open(QIODevice::ReadOnly))
        for (const auto& line : status.readAll().split('\n'))
            if (line.startsWith("VmRSS:"))
                return line.mid(6).trimmed().split(' ').first().toDouble() / 1024;
    return 0;
}

template <typename Action>
double millisecondsOf(Action action) {
    const auto began = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - began).count();
}

template <typename Action>
void print(const char* what, int times, Action action) {
    std::vector<double> milliseconds;
    for (int i = 0; i < times; ++i)
        milliseconds.push_back(millisecondsOf([&] { action(i); }));
    std::sort(milliseconds.begin(), milliseconds.end());
    std::printf("%-58s median %7.2f ms, worst %7.2f ms\n", what, milliseconds[milliseconds.size() / 2],
                milliseconds.back());
}

void fill(int64_t records) {
    const auto container = DataContainer::create();
    figures::SampleHistory history;
    const double milliseconds = millisecondsOf([&] {
        for (int64_t i = 0; i < records; ++i) {
            container->mainContext().insert(history.next());
            if (i % 1'000 == 999)
                container->mainContext().save();
        }
        container->mainContext().save();
    });
    std::printf("%lld records saved, a thousand at a time, in %.1f s; %.0f MB on disk\n",
                static_cast<long long>(records), milliseconds / 1000,
                static_cast<double>(QFileInfo(DataContainer::storeURL()).size()) / 1e6);
}

struct Keystroke {
    double milliseconds = 0;
    QString typed;
};

/// The slowest state of the search field while `text` is typed. Each is taken at the median of five: other programs run
/// on the machine as well.
Keystroke slowestKeystroke(ModelContext& context, const QString& text) {
    Keystroke slowest;
    for (qsizetype length = 1; length <= text.size(); ++length) {
        RecordQuery query;
        query.search = text.left(length);
        query.limit = pageLength;
        std::array<double, 5> milliseconds{};
        for (auto& each : milliseconds)
            each = millisecondsOf([&] { context.summaries(query); });
        std::sort(milliseconds.begin(), milliseconds.end());
        if (milliseconds[2] > slowest.milliseconds)
            slowest = {milliseconds[2], query.search};
    }
    return slowest;
}

void search(ModelContext& context) {
    const char16_t* typed[] = {u"the",
                               u"meeting tomorrow report",
                               u"tomorrow the zyzzyva",
                               u"zyzzyva the",
                               u"report seldom",
                               u"firefox meeting",
                               u"Größe über",
                               u"привет",
                               u"домо при",
                               u"一丁七",
                               u"あい",
                               u"بحق",
                               u"a b c d e f",
                               u"visual studio code the",
                               u"qqqq",
                               u"the to and of we that is for meeting it",
                               u"constverton"};
    for (const auto* text : typed) {
        const auto string = QString::fromUtf16(text);
        const auto slowest = slowestKeystroke(context, string);
        RecordQuery query;
        query.search = string;
        const auto found = context.count(query);
        std::printf("search, typing \"%s\": slowest key %.2f ms (at \"%s\"), finds %lld\n", string.toUtf8().constData(),
                    slowest.milliseconds, slowest.typed.toUtf8().constData(), static_cast<long long>(found));
    }
    RecordQuery combined;
    combined.search = QStringLiteral("the");
    combined.tagNames = {QStringLiteral("Zoom"), QStringLiteral("seldom")};
    combined.favoritesOnly = true;
    combined.limit = pageLength;
    print("search with two tags and favourites", 20, [&](int) { context.summaries(combined); });
}

void measure(int64_t records) {
    const QTemporaryDir folder;
    qputenv("XDG_DATA_HOME", QFile::encodeName(folder.path()));
    fill(records);
    std::printf("resident after filling: %.0f MB\n", residentMegabytes());

    RecordQuery page;
    page.limit = pageLength;
    print("open and first page", 10, [&](int) { DataContainer::create()->mainContext().summaries(page); });
    const auto container = DataContainer::create();
    auto& context = container->mainContext();
    print("first page, what a list shows", 50, [&](int) { context.summaries(page); });
    print("first page, whole records", 50, [&](int) { context.fetch(page); });
    auto last = page;
    last.offset = records - pageLength - 1;
    print("last page by offset", 10, [&](int) { context.summaries(last); });
    last.offset = records - 2 * pageLength;
    last.limit = 1;
    auto behind = page;
    behind.after = context.summaries(last).value(0).id;
    print("last page by key", 50, [&](int) { context.summaries(behind); });
    auto tagged = page;
    tagged.tagNames = {QStringLiteral("seldom")};
    print("first page of a rare tag", 50, [&](int) { context.summaries(tagged); });
    print("count of all", 20, [&](int) { context.count(); });
    search(context);

    double before = residentMegabytes();
    RecordQuery next = page;
    next.limit = 500;
    const double walk = millisecondsOf([&] {
        for (auto found = context.fetch(next); !found.isEmpty(); found = context.fetch(next))
            next.after = found.last()->id;
    });
    std::printf("walk over all whole records, 500 at a time: %.0f ms, %.1f MB more resident\n", walk,
                residentMegabytes() - before);

    figures::SampleHistory more(7);
    print("insert and save one", 200, [&](int) {
        auto record = more.next();
        record->createdAt = QDateTime::currentDateTimeUtc();
        context.insert(record);
        context.save();
    });
    const auto live = context.fetch(page);
    print("star one and save", 200, [&](int i) {
        live.at(i % live.size())->toggleFavorite();
        context.save();
    });
    print("record by id", 200, [&](int i) { context.record(live.at(i % live.size())->id); });
    print("delete one and save", 50, [&](int i) {
        context.remove(live.at(i % live.size()));
        context.save();
    });
    std::printf("resident at the end: %.0f MB\n", residentMegabytes());
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    LoggingService::shared().setConsoleLevel(std::nullopt);
    try {
        measure(argc > 1 ? std::strtoll(argv[1], nullptr, 10) : 100'000);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
