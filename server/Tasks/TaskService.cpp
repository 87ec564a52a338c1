#include "Tasks/TaskService.h"

#include "Foundation/Log.h"
#include "Tasks/TaskResults.h"
#include "Tasks/TaskWork.h"
#include "Uploads/UploadError.h"
#include "Uploads/UploadForm.h"

#include <algorithm>
#include <set>
#include <sys/resource.h>
#include <unistd.h>

namespace quillo::server {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int backgroundNice = 10;
constexpr auto expiryInterval = std::chrono::minutes(30);
constexpr auto databasePause = std::chrono::seconds(30);
constexpr auto busyPause = std::chrono::seconds(2);
/// A file whose recognition crashed the server this often is not tried again.
constexpr int maxAttempts = 3;
constexpr int crashStatus = 422;
constexpr const char* crashCode = "RECOGNITION_CRASHED";
constexpr const char* crashDetail = "Recognising this audio ended the server several times; it is not tried again.";

/// True when a session for `languages` that recognised `heard` answers a request for `wanted`.
bool languageFits(const std::string& wanted, const LiveTranscript& live) {
    return wanted.empty() || wanted == "auto" || wanted == live.languages || wanted == live.language;
}

/// The answer to waiting requests when a task was removed with its account.
Task removedTask() {
    Task task;
    task.status = TaskStatus::failed;
    task.errorStatus = 404;
    task.errorCode = "NOT_FOUND";
    task.error = "The task was removed.";
    return task;
}

Sha256Value hashOfSamples(AudioReader& audio) {
    Sha256 hash;
    AudioBlock block;
    while (audio.read(block))
        hash.update(block.mono);
    return hash.finish();
}

} // namespace

TaskService::TaskService(TaskSettings settings, std::shared_ptr<Recogniser> recogniser, TaskStore::WallClock clock)
    : m_settings(std::move(settings)), m_recogniser(std::move(recogniser)),
      m_store(m_settings.dataFolder / "tasks.sqlite", std::move(clock)),
      m_spool(std::make_shared<Spool>(m_settings.dataFolder / "uploads", m_settings.maxSpoolBytes)) {}

TaskService::~TaskService() { stop(); }

void TaskService::start() {
    std::set<std::string> needed;
    for (const Task& task : m_store.unfinished()) {
        const auto& request = task.request;
        std::error_code error;
        const auto size = std::filesystem::file_size(m_spool->path(request.audioFile), error);
        if (error || static_cast<int64_t>(size) != request.audioBytes) {
            m_store.fail(task.id, 503, "AUDIO_LOST", "The server lost the uploaded audio; upload it again.");
            log(LogLevel::error, "tasks", "the audio of task " + task.id + " is gone; the task has failed");
        } else if (task.attempts >= maxAttempts) {
            m_store.fail(task.id, crashStatus, crashCode, crashDetail);
            log(LogLevel::error, "tasks", "task " + task.id + " ended the server several times and is given up");
        } else {
            m_store.requeue(task.id, false);
            needed.insert(request.audioFile);
            m_queue.push({request.userId, task.id});
        }
    }
    m_spool->retain(needed);
    if (!needed.empty())
        log(LogLevel::info, "tasks", "taking up " + std::to_string(needed.size()) + " unfinished tasks");
    expire();
    m_nextExpiry = Clock::now() + expiryInterval;
    for (unsigned i = 0; i < std::max(1U, m_settings.workers); ++i)
        m_workers.emplace_back([this] { work(); });
}

void TaskService::stop() {
    {
        const std::scoped_lock lock(m_mutex);
        m_stopping = true;
        for (const auto& [id, running] : m_running)
            running->stop.request_stop();
        m_waiting.clear();
    }
    m_changed.notify_all();
    for (auto& worker : m_workers)
        worker.join();
    m_workers.clear();
}

std::unique_ptr<UploadForm> TaskService::form(const std::string& contentType) const {
    return std::make_unique<UploadForm>(m_spool, contentType, m_settings.maxFileBytes);
}

Task TaskService::submit(const std::string& userId, TaskKind kind, UploadForm& form) {
    auto audio = form.takeAudio();
    // Refuse files without audio before the client waits for a result.
    const auto path = m_spool->path(audio->name());
    { const AudioReader check(path); }

    TaskRequest request;
    request.userId = userId;
    request.kind = kind;
    request.recordingId = form.recordingId();
    request.language = form.language();
    request.purpose = form.purpose();
    request.provider = m_recogniser->name();
    request.audioHash = form.audioHash();
    request.audioFile = audio->name();
    request.audioBytes = audio->size();

    if (m_store.crashed(request))
        throw UploadError(crashStatus, crashCode, crashDetail);
    // This reads the whole file, so do not hold the lock. An existing task still takes precedence.
    const bool mayBeLive =
        kind == TaskKind::transcription && !request.recordingId.empty() && !request.wantsFreshResult();
    if (mayBeLive && !m_store.match(request)) {
        if (auto live = answerFromLive(userId, form, path))
            return *live;
    }
    const std::scoped_lock submitLock(m_submitMutex);
    if (auto same = m_store.match(request)) {
        log(LogLevel::info, "tasks", "a request of user " + userId + " joins task " + same->id);
        return *same;
    }
    if (m_store.unfinishedOf(userId) >= m_settings.maxTasksPerUser)
        throw UploadError(429, "TOO_MANY_TASKS",
                          "Too many files of this account wait to be recognised; try again when some are done.");
    return enqueue(request, *audio);
}

Task TaskService::submitMeeting(TaskRequest request, const StoredTranscript& transcript, SpoolFile& audio) {
    request.kind = TaskKind::diarization;
    request.provider = m_recogniser->name();
    request.audioFile = audio.name();
    request.audioBytes = audio.size();
    const std::scoped_lock submitLock(m_submitMutex);
    if (m_store.unfinishedOf(request.userId) >= m_settings.maxTasksPerUser)
        throw UploadError(429, "TOO_MANY_TASKS",
                          "Too many files of this account wait to be recognised; upload the recording when some are "
                          "done.");
    return enqueue(request, audio, encode(transcript));
}

Task TaskService::recordFailedMeeting(TaskRequest request, const UploadError& cause) {
    request.kind = TaskKind::diarization;
    request.provider = m_recogniser->name();
    Task task = addTask(request, {});
    log(LogLevel::error, "tasks", "task " + task.id + " failed with " + cause.code() + ": " + cause.what());
    m_store.fail(task.id, cause.status(), cause.code(), cause.what());
    task.status = TaskStatus::failed;
    task.errorCode = cause.code();
    task.error = cause.what();
    task.errorStatus = cause.status();
    return task;
}

Task TaskService::addTask(const TaskRequest& request, const std::string& transcript) {
    auto added = m_store.add(request, transcript);
    if (!added)
        throw UploadError(401, "INVALID_TOKEN", "The account was removed meanwhile.");
    return std::move(*added);
}

Task TaskService::enqueue(const TaskRequest& request, SpoolFile& audio, const std::string& transcript) {
    Task task = addTask(request, transcript);
    audio.keep();
    log(LogLevel::info, "tasks",
        "task " + task.id + " of user " + request.userId + ": " + std::to_string(request.audioBytes) + " bytes to " +
            (transcript.empty() ? "recognise" : "separate by speakers"));
    {
        const std::scoped_lock lock(m_mutex);
        m_queue.push({task.request.userId, task.id});
    }
    m_changed.notify_one();
    return task;
}

std::optional<Task> TaskService::answerFromLive(const std::string& userId, const UploadForm& form,
                                                const std::filesystem::path& audio) {
    const auto live = m_store.findLive(userId, form.recordingId());
    if (!live || live->text.empty() || live->provider != m_recogniser->name() || !languageFits(form.language(), *live))
        return std::nullopt;
    AudioReader reader(audio);
    if (!reader.isVerbatim() || reader.length() != live->sampleCount ||
        !m_store.liveMatches(*live, hashOfSamples(reader)))
        return std::nullopt;
    log(LogLevel::info, "tasks", "a file of user " + userId + " was heard live before; answered without recognition");
    RecognisedFile heard;
    heard.text = live->text;
    heard.language = live->language;
    heard.sampleCount = live->sampleCount;
    Task task;
    task.id = live->id;
    task.status = TaskStatus::completed;
    task.result = toText(transcriptionResult(live->id, heard));
    return task;
}

void TaskService::whenOver(const std::string& userId, const std::string& id, std::function<void(const Task&)> done) {
    std::optional<Task> task;
    {
        // Use the lock under which the end of a task is reported, so that it cannot be missed.
        const std::scoped_lock lock(m_mutex);
        task = m_store.find(userId, id);
        if (task && !task->isOver()) {
            if (!m_stopping)
                m_waiting[id].push_back(std::move(done));
            return;
        }
    }
    done(task ? *task : removedTask());
}

double TaskService::progress(const std::string& id) const {
    const std::scoped_lock lock(m_mutex);
    const auto found = m_running.find(id);
    return found == m_running.end() ? 0 : found->second->progress.load();
}

void TaskService::keepLive(const LiveTranscript& transcript) {
    try {
        m_store.keepLive(transcript);
    } catch (const std::exception& error) {
        log(LogLevel::error, "tasks", std::string("cannot keep a live transcript: ") + error.what());
    }
}

void TaskService::removeUser(const std::string& userId) {
    {
        const std::scoped_lock lock(m_mutex);
        m_queue.remove(userId);
        for (const auto& [id, running] : m_running) {
            if (running->userId == userId)
                running->stop.request_stop();
        }
    }
    for (const auto& file : m_store.removeUser(userId))
        m_spool->remove(file);
}

void TaskService::moveUser(const std::string& from, const std::string& to) {
    for (const auto& file : m_store.moveUser(from, to))
        m_spool->remove(file);
    // Queued work is found by both ids.
    const std::scoped_lock lock(m_mutex);
    for (const auto& [id, running] : m_running) {
        if (running->userId == from)
            running->userId = to;
    }
}

void TaskService::work() {
    // Separating speakers computes for minutes: live sessions come first. A refusal changes nothing.
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), backgroundNice);
    std::unique_lock lock(m_mutex);
    while (!m_stopping) {
        const auto now = Clock::now();
        if (now >= m_nextExpiry) {
            m_nextExpiry = now + expiryInterval;
            lock.unlock();
            expire();
            lock.lock();
            continue;
        }
        if (now < m_busyUntil) {
            m_changed.wait_until(lock, m_busyUntil);
            continue;
        }
        const auto item = m_queue.pop();
        if (!item) {
            m_changed.wait_until(lock, m_nextExpiry);
            continue;
        }
        lock.unlock();
        runTask(*item);
        lock.lock();
        m_queue.done(item->user);
    }
}

void TaskService::runTask(const FairQueue::Item& item) {
    const auto running = std::make_shared<Running>();
    try {
        const auto task = m_store.find(item.user, item.id);
        if (task && !task->isOver()) {
            {
                const std::scoped_lock lock(m_mutex);
                if (m_stopping)
                    return;
                running->userId = task->request.userId;
                m_running.emplace(item.id, running);
            }
            perform(*task, *running);
        }
    } catch (const std::exception& error) {
        // Only the database can fail here, for example on a full disk.
        log(LogLevel::error, "tasks", "task " + item.id + " could not be recorded, later again: " + error.what());
        const std::scoped_lock lock(m_mutex);
        m_queue.pushFront(item);
        m_busyUntil = Clock::now() + databasePause;
    }
    {
        const std::scoped_lock lock(m_mutex);
        m_running.erase(item.id);
    }
    try {
        finished(item.user, item.id);
    } catch (const std::exception& error) {
        log(LogLevel::error, "tasks", "the end of task " + item.id + " could not be told: " + error.what());
    }
}

Json TaskService::resultOf(const Task& task, Running& running) {
    const auto audio = m_spool->path(task.request.audioFile);
    const TaskWork work{.recogniser = *m_recogniser,
                        .stallTimeout = m_settings.stallTimeout,
                        .onProgress = [&running](double share) { running.progress = share; },
                        .stop = running.stop.get_token()};
    if (task.request.hasTranscript) {
        const auto transcript = decodeTranscript(m_store.transcript(task.id));
        if (!transcript)
            throw UploadError(500, "STORAGE_FAILED", "The server lost the words of the meeting; upload its recording.");
        return separateMeeting(work, audio, *transcript);
    }
    return task.request.kind == TaskKind::diarization ? diarizeUpload(work, audio, task.request.language)
                                                      : transcribeUpload(work, audio, task.id, task.request.language);
}

void TaskService::perform(const Task& task, Running& running) {
    const auto& request = task.request;
    const auto fail = [&](int status, const std::string& code, const std::string& detail) {
        log(LogLevel::error, "tasks", "task " + task.id + " failed with " + code + ": " + detail);
        m_store.fail(task.id, status, code, detail);
        m_spool->remove(request.audioFile);
    };
    m_store.begin(task.id);
    log(LogLevel::info, "tasks", "task " + task.id + " begun, attempt " + std::to_string(task.attempts + 1));
    try {
        const auto begin = Clock::now();
        const Json result = resultOf(task, running);
        m_store.complete(task.id, toText(result));
        m_spool->remove(request.audioFile);
        const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
        log(LogLevel::info, "tasks",
            "task " + task.id + " done: " + std::to_string(result.value("duration_ms", int64_t{0}) / 1000) +
                " s of audio in " + std::to_string(took.count()) + " ms");
    } catch (const RecognitionStopped&) {
        m_store.requeue(task.id, true);
    } catch (const RecogniserBusy&) {
        m_store.requeue(task.id, true);
        const std::scoped_lock lock(m_mutex);
        m_queue.pushFront({request.userId, task.id});
        m_busyUntil = Clock::now() + busyPause;
    } catch (const LanguageNotServed& error) {
        fail(422, "LANGUAGE_NOT_SERVED", error.what());
    } catch (const RecogniserUnavailable& error) {
        fail(503, "STT_UNAVAILABLE", error.what());
    } catch (const RecognitionFailed& error) {
        fail(503, error.isUnavailable ? "STT_UNAVAILABLE" : "TRANSCRIPTION_ERROR", error.what());
    } catch (const UploadError& error) {
        fail(error.status(), error.code(), error.what());
    } catch (const DatabaseError&) {
        throw;
    } catch (const std::exception& error) {
        fail(500, "INTERNAL_ERROR", error.what());
    }
}

void TaskService::finished(const std::string& userId, const std::string& id) {
    std::vector<std::function<void(const Task&)>> waiting;
    std::optional<Task> task;
    {
        const std::scoped_lock lock(m_mutex);
        task = m_store.find(userId, id);
        if (task && !task->isOver())
            return;
        if (const auto found = m_waiting.find(id); found != m_waiting.end()) {
            waiting = std::move(found->second);
            m_waiting.erase(found);
        }
    }
    for (const auto& done : waiting)
        done(task ? *task : removedTask());
}

void TaskService::expire() {
    try {
        for (const auto& file : m_store.expire(m_settings.resultLifetime, m_settings.audioLifetime))
            m_spool->remove(file);
    } catch (const std::exception& error) {
        log(LogLevel::error, "tasks", std::string("cannot remove what has expired: ") + error.what());
    }
}

} // namespace quillo::server
