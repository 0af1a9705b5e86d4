#pragma once

#include "Operation.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QThread>
#include <QtCore/QTimer>

#include <memory>

namespace tvl::vantor {

class Fetcher;
class Job;
struct JobContext;
class Transport;

class OperationPrivate
{
public:
    OperationPrivate(Operation* owner, Operation::Kind kind, const Options& options);

    void reportProgress();
    void finish(const UpdateResultPtr& result);

    Operation* q;
    Operation::Kind kind;
    Options options;
    std::shared_ptr<JobContext> context;
    Transport* ownTransport = nullptr;
    Fetcher* fetcher = nullptr;
    QThread* thread = nullptr;
    UpdateResultPtr result;
    Progress last;
    QTimer timer;
    QElapsedTimer clock;
    int rateStage = -1;
    qint64 rateBytes = 0;
    qint64 rateTime = 0;
    double rate = 0.0;
    bool running = false;
};

} // namespace tvl::vantor
