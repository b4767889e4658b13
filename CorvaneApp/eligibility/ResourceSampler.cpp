#include "CorvaneApp/eligibility/ResourceSampler.h"

#include <algorithm>
#include <cmath>

namespace corvane {
namespace {

void push(std::vector<double>& series, double value) {
    series.push_back(value);
    if (series.size() > ResourceSampler::chartPoints) series.erase(series.begin());
}

void replaceLast(std::vector<double>& series, double value) {
    if (series.empty()) {
        series.push_back(value);
    } else {
        series.back() = value;
    }
}

}  // namespace

ResourceSampler::ResourceSampler(Executor& executor, std::shared_ptr<Probes> probes, int rootPID,
                                 NowFunction now)
    : executor_(executor),
      probes_(std::move(probes)),
      rootPID_(rootPID),
      now_(std::move(now)),
      coreCount_(std::max(1, probes_->processorCount())) {}

void ResourceSampler::start(double interval) {
    timer_.cancel();
    {
        std::lock_guard lock(mutex_);
        rawsPerBucket_ = std::max(1, static_cast<int>(std::lround(60.0 / interval)));
    }
    sampleOnce();
    timer_ = executor_.scheduleRepeating(interval, [this] { sampleOnce(); });
}

void ResourceSampler::stop() {
    timer_.cancel();
}

double ResourceSampler::busyPercent(const CpuTickSet& before, const CpuTickSet& after) {
    const double busy = static_cast<double>(tickDelta(before.user, after.user) +
                                            tickDelta(before.system, after.system) +
                                            tickDelta(before.nice, after.nice));
    const double all = busy + static_cast<double>(tickDelta(before.idle, after.idle));
    return all > 0 ? busy / all * 100.0 : 0.0;
}

std::optional<double> ResourceSampler::readCPUUsagePercent() {
    auto ticks = probes_->machineTicks();
    if (!ticks) return std::nullopt;  // the previous ticks stay valid for the next tick
    const double percent = lastCPULoad_ ? busyPercent(*lastCPULoad_, *ticks) : 0.0;
    lastCPULoad_ = *ticks;
    return percent;
}

std::optional<std::pair<double, double>> ResourceSampler::readPerCorePESplit() {
    auto cores = probes_->perCoreTicks();
    if (!cores || cores->empty()) return std::nullopt;
    if (!lastPerCoreTicks_ || lastPerCoreTicks_->size() != cores->size()) {
        lastPerCoreTicks_ = std::move(cores);
        return std::nullopt;
    }
    std::vector<CpuTickSet> previous = std::exchange(*lastPerCoreTicks_, std::move(*cores));
    const auto& current = *lastPerCoreTicks_;
    auto performance = probes_->performanceCoreCount();
    if (!performance || *performance < 1 || static_cast<std::size_t>(*performance) > current.size())
        return std::nullopt;
    const double share = 100.0 / static_cast<double>(current.size());
    double perf = 0, eff = 0;
    for (std::size_t i = 0; i < current.size(); ++i) {
        const double part = share * busyPercent(previous[i], current[i]) / 100.0;
        (i < static_cast<std::size_t>(*performance) ? perf : eff) += part;
    }
    return std::pair{std::clamp(perf, 0.0, 100.0), std::clamp(eff, 0.0, 100.0)};
}

std::pair<double, double> ResourceSampler::resolveCPU(double corvaneProcessPercent,
                                                      double coreCount, double cpuTotalMachine) {
    const double own = std::clamp(
        coreCount > 1 ? corvaneProcessPercent / coreCount : corvaneProcessPercent, 0.0, 100.0);
    const double machine = std::clamp(cpuTotalMachine, 0.0, 100.0);
    return {own, std::max(0.0, machine - own)};
}

void ResourceSampler::sampleOnce() {
    const auto total = readCPUUsagePercent();
    const auto memory = probes_->memory();
    const auto tree = probes_->processTree(rootPID_);
    const auto split = readPerCorePESplit();
    const Date at = now_();

    std::lock_guard lock(mutex_);
    if (tree) {
        const double rssMB = tree->residentMB;
        RawSample sample;
        sample.at = at;
        sample.cpuPercent = tree->cpuPercent;
        sample.ramBytesUsed =
            rssMB > 0 ? static_cast<std::uint64_t>(std::llround(rssMB * 1048576.0)) : 0;
        if (split) {
            sample.cpuPerfPct = split->first;
            sample.cpuEffPct = split->second;
        }
        rawSamples_.push_back(sample);
    }
    const Date horizon = addSeconds(at, -rawRetentionSeconds);
    while (!rawSamples_.empty() && rawSamples_.front().at < horizon) rawSamples_.pop_front();

    // A chart point needs all three readings: a made-up zero would show as a dip.
    if (!total || !memory || !tree) return;
    const auto [cpuCorvane, cpuOther] = resolveCPU(tree->cpuPercent, coreCount_, *total);
    const double ramCorvane =
        memory->totalGB > 0
            ? std::min(memory->usedPercent, tree->residentMB / (memory->totalGB * 1024.0) * 100.0)
            : 0.0;
    const double ramOther = std::max(0.0, memory->usedPercent - ramCorvane);
    pushChartPoint(cpuCorvane, cpuOther, ramCorvane, ramOther);
}

void ResourceSampler::pushChartPoint(double cpuCorvane, double cpuOther, double ramCorvane,
                                     double ramOther) {
    history_.latestCpuCorvane = cpuCorvane;
    history_.latestCpuOther = cpuOther;
    history_.latestRamCorvane = ramCorvane;
    history_.latestRamOther = ramOther;
    bucketAccumCpuCorvane_ += cpuCorvane;
    bucketAccumCpuOther_ += cpuOther;
    bucketAccumRamCorvane_ += ramCorvane;
    bucketAccumRamOther_ += ramOther;
    ++bucketSampleCount_;
    const double n = bucketSampleCount_;
    const double means[] = {bucketAccumCpuCorvane_ / n, bucketAccumCpuOther_ / n,
                            bucketAccumRamCorvane_ / n, bucketAccumRamOther_ / n};
    std::vector<double>* series[] = {&history_.cpuCorvane, &history_.cpuOther, &history_.ramCorvane,
                                     &history_.ramOther};
    // The last point moves during the minute and settles when the bucket closes.
    for (int i = 0; i < 4; ++i) {
        if (partialBucketLive_) {
            replaceLast(*series[i], means[i]);
        } else {
            push(*series[i], means[i]);
        }
    }
    if (bucketSampleCount_ >= rawsPerBucket_) {
        bucketAccumCpuCorvane_ = bucketAccumCpuOther_ = bucketAccumRamCorvane_ =
            bucketAccumRamOther_ = 0;
        bucketSampleCount_ = 0;
        partialBucketLive_ = false;
    } else {
        partialBucketLive_ = true;
    }
}

ResourceSampler::Snapshot ResourceSampler::history() const {
    std::lock_guard lock(mutex_);
    return history_;
}

ResourceAggregate ResourceSampler::aggregateSince(Date since) const {
    std::lock_guard lock(mutex_);
    ResourceAggregate out;
    double cpuSum = 0, perfSum = 0, effSum = 0;
    int perfCount = 0, effCount = 0;
    // A full scan rather than a search: after the clock was set back, samples are not in order.
    for (auto it = rawSamples_.begin(); it != rawSamples_.end(); ++it) {
        if (it->at < since) continue;
        ++out.sampleCount;
        cpuSum += it->cpuPercent;
        out.peakRamBytes = std::max(out.peakRamBytes, it->ramBytesUsed);
        if (it->cpuPerfPct) {
            perfSum += *it->cpuPerfPct;
            ++perfCount;
        }
        if (it->cpuEffPct) {
            effSum += *it->cpuEffPct;
            ++effCount;
        }
    }
    if (out.sampleCount == 0) return out;
    out.avgCpuPercent = cpuSum / static_cast<double>(out.sampleCount);
    if (perfCount > 0) out.avgCpuPerfPct = perfSum / perfCount;
    if (effCount > 0) out.avgCpuEffPct = effSum / effCount;
    return out;
}

std::size_t ResourceSampler::rawSampleCount() const {
    std::lock_guard lock(mutex_);
    return rawSamples_.size();
}

int ResourceSampler::rawsPerBucket() const {
    std::lock_guard lock(mutex_);
    return rawsPerBucket_;
}

bool ResourceSampler::partialBucketLive() const {
    std::lock_guard lock(mutex_);
    return partialBucketLive_;
}

}  // namespace corvane
