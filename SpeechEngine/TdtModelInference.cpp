#include "SpeechEngine/TdtModelInference.h"

#include <climits>
#include <cmath>
#include <string>

#include "SpeechEngine/ASRError.h"

namespace speech {
namespace {

constexpr std::int64_t decoderHidden = TdtDecoderState::hiddenSize;

void checkStride(std::int64_t stride, const char* which) {
    if (stride > INT32_MAX) {
        throw ASRError::processingFailed(std::string(which) + " " + std::to_string(stride) +
                                         " exceeds supported range");
    }
}

const MultiArray& requireScalar(const FeatureMap& outputs, const char* name, const char* missing) {
    const auto* array = outputs.find(name);
    if (!array) throw ASRError::processingFailed(missing);
    if (array->count() != 1)
        throw ASRError::processingFailed("Joint decision returned unexpected tensor shapes");
    return *array;
}

int integerOutput(const MultiArray& array, const char* name) {
    float value = array.flat(0);
    if (!std::isfinite(value) || value < static_cast<float>(INT32_MIN) ||
        value > static_cast<float>(INT32_MAX - 128)) {
        throw ASRError::processingFailed(std::string("Joint decision output ") + name +
                                         " is not an integer: " + std::to_string(value));
    }
    return static_cast<int>(value);
}

}  // namespace

void normalizeDecoderProjection(const MultiArray& source, MultiArray& destination) {
    const auto& shape = source.shape();
    if (shape.size() != 2 && shape.size() != 3) {
        throw ASRError::processingFailed("Invalid decoder projection rank: " +
                                         std::to_string(shape.size()));
    }
    if (shape[0] != 1)
        throw ASRError::processingFailed("Unsupported decoder batch dimension: " +
                                         std::to_string(shape[0]));
    if (source.type() != ElementType::float32) {
        throw ASRError::processingFailed(std::string("Unsupported decoder projection type: ") +
                                         name(source.type()));
    }
    std::size_t hiddenAxis = 1;
    if (shape.size() == 3 && shape[1] != decoderHidden && shape[2] == decoderHidden) hiddenAxis = 2;
    if (shape[hiddenAxis] != decoderHidden) {
        throw ASRError::processingFailed("Decoder projection hidden size mismatch: " +
                                         std::to_string(shape[hiddenAxis]));
    }
    if (shape.size() == 3) {
        std::size_t timeAxis = hiddenAxis == 1 ? 2 : 1;
        if (shape[timeAxis] != 1) {
            throw ASRError::processingFailed("Decoder projection time axis must be 1: " +
                                             std::to_string(shape[timeAxis]));
        }
    }
    const auto& target = destination.shape();
    if (target.size() != 3 || target[0] != 1 || target[1] != decoderHidden || target[2] != 1) {
        throw ASRError::processingFailed("Prepared decoder step shape mismatch: " +
                                         destination.shapeText());
    }
    std::int64_t sourceStride = source.strides()[hiddenAxis];
    std::int64_t destinationStride = destination.strides()[1];
    checkStride(sourceStride, "Decoder projection stride");
    checkStride(destinationStride, "Decoder destination stride");

    const float* from = source.storage().data();
    float* to = destination.storage().data();
    for (std::int64_t h = 0; h < decoderHidden; ++h)
        to[h * destinationStride] = from[h * sourceStride];
}

TdtModelInference::TdtModelInference(const NeuralModel& decoder, const NeuralModel& joint,
                                     int encoderHiddenSize)
    : decoder_(decoder), joint_(joint) {
    decoderInputs_.set("targets", MultiArray({1, 1}, ElementType::int32));
    decoderInputs_.set("target_length", MultiArray::scalarInt(1));
    decoderInputs_.set("h_in", MultiArray());
    decoderInputs_.set("c_in", MultiArray());
    targets_ = decoderInputs_.find("targets");
    hiddenIn_ = decoderInputs_.find("h_in");
    cellIn_ = decoderInputs_.find("c_in");

    jointInputs_.set("encoder_step", MultiArray({1, encoderHiddenSize, 1}));
    jointInputs_.set("decoder_step", MultiArray({1, decoderHidden, 1}));
    encoderStep_ = jointInputs_.find("encoder_step");
    decoderStep_ = jointInputs_.find("decoder_step");
}

const MultiArray& TdtModelInference::runDecoder(int token, TdtDecoderState& state) {
    targets_->storage()[0] = static_cast<float>(token);
    *hiddenIn_ = state.hiddenState;
    *cellIn_ = state.cellState;
    decoder_.predict(decoderInputs_, decoderOutputs_);
    const auto* projection = decoderOutputs_.find("decoder");
    if (!projection) throw ASRError::processingFailed("Invalid decoder output");
    state.update(decoderOutputs_);
    return *projection;
}

void TdtModelInference::prepareDecoderStep(const MultiArray& predictorOutput) {
    normalizeDecoderProjection(predictorOutput, *decoderStep_);
}

void TdtModelInference::prepareEncoderStep(const EncoderFrameView& frames, int index) {
    frames.copyFrame(index, encoderStep_->storage());
}

JointDecision TdtModelInference::runJointPrepared() {
    joint_.predict(jointInputs_, jointOutputs_);
    const auto& token =
        requireScalar(jointOutputs_, "token_id", "Joint decision output missing token_id");
    const auto& probability =
        requireScalar(jointOutputs_, "token_prob", "Joint decision output missing token_prob");
    const auto& duration =
        requireScalar(jointOutputs_, "duration", "Joint decision output missing duration");

    JointDecision decision;
    decision.token = integerOutput(token, "token_id");
    decision.probability = probability.flat(0);
    decision.durationIndex = integerOutput(duration, "duration");

    const auto* ids = jointOutputs_.find("top_k_ids");
    const auto* logits = jointOutputs_.find("top_k_logits");
    if ((ids == nullptr) != (logits == nullptr)) {
        throw ASRError::processingFailed(
            "Joint decision top-K outputs must be present as a pair (top_k_ids + top_k_logits)");
    }
    if (ids) {
        if (ids->count() != logits->count()) {
            throw ASRError::processingFailed(
                "Joint decision top-K length mismatch: " + std::to_string(ids->count()) + " vs " +
                std::to_string(logits->count()));
        }
        // Top-K lists are read as flat rows; a strided backend layout is not expected here.
        if (ids->isContiguous() && logits->isContiguous()) {
            decision.topKIds = ids->storage().first(static_cast<std::size_t>(ids->count()));
            decision.topKLogits =
                logits->storage().first(static_cast<std::size_t>(logits->count()));
        }
    }
    return decision;
}

}  // namespace speech
