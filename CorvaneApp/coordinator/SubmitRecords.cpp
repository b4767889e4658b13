#include "CorvaneApp/coordinator/SubmitRecords.h"

namespace corvane {

Json SubmitPerformanceBody::encode() const {
    using json::putIfPresent;
    Json out{{"sample_count", sampleCount}};
    putIfPresent(out, "wall_clock_seconds", wallClockSeconds);
    putIfPresent(out, "cpu_avg_percent", cpuAvgPercent);
    putIfPresent(out, "ram_peak_gb", ramPeakGB);
    putIfPresent(out, "audio_seconds", audioSeconds);
    putIfPresent(out, "chip", chip);
    putIfPresent(out, "memory_gb", memoryGB);
    putIfPresent(out, "quantization", quantization);
    putIfPresent(out, "resource_preset_percent", resourcePresetPercent);
    putIfPresent(out, "user_percent", userPercent);
    putIfPresent(out, "effective_percent", effectivePercent);
    putIfPresent(out, "thread_limit", threadLimit);
    putIfPresent(out, "max_shards_in_flight", maxShardsInFlight);
    putIfPresent(out, "resource_mode", resourceMode);
    putIfPresent(out, "cpu_count_total", cpuCountTotal);
    putIfPresent(out, "cpu_count_perf", cpuCountPerf);
    putIfPresent(out, "cpu_count_efficiency", cpuCountEfficiency);
    putIfPresent(out, "download_seconds", downloadSeconds);
    putIfPresent(out, "decode_seconds", decodeSeconds);
    putIfPresent(out, "inference_seconds", inferenceSeconds);
    putIfPresent(out, "cpu_perf_avg_pct", cpuPerfAvgPct);
    putIfPresent(out, "cpu_eff_avg_pct", cpuEffAvgPct);
    putIfPresent(out, "poll_rtt_ms", pollRttMs);
    putIfPresent(out, "submit_rtt_ms", submitRttMs);
    putIfPresent(out, "audio_realtime_factor", audioRealtimeFactor);
    putIfPresent(out, "segments_per_second", segmentsPerSecond);
    putIfPresent(out, "cache_hit", cacheHit);
    putIfPresent(out, "cache_load_seconds", cacheLoadSeconds);
    putIfPresent(out, "strategy_version", strategyVersion);
    return out;
}

Json SubmitResultBody::encode() const {
    Json out{
        {"transcript", transcript}, {"language", language}, {"model", model}, {"backend", backend}};
    json::putIfPresent(out, "duration_seconds", durationSeconds);
    json::putIfPresent(out, "word_count", wordCount);
    if (performance) out["performance"] = performance->encode();
    return out;
}

}  // namespace corvane
