#pragma once

#include "PlainPrecompiled.h"

#include <QByteArray>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QRegularExpression>
#include <QSocketNotifier>
#include <QString>
#include <QThread>
#include <QTimer>
#include <QUrl>
#include <QUuid>
#include <QVariantMap>

#include <qcorotask.h>

#include "Concurrency/AsyncEvent.h"
#include "Concurrency/AsyncStream.h"
#include "Concurrency/Clock.h"
#include "Concurrency/Task.h"
#include "Concurrency/TaskRunner.h"
