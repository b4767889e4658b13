#pragma once
// The decoder for the v2 model set: the same loop, with the v2 vocabulary's blank token.

#include "SpeechEngine/TdtDecoderV3.h"

namespace speech {

class TdtDecoderV2 : public TdtDecoderV3 {
  public:
    static constexpr int blankId = 1024;

    explicit TdtDecoderV2(ASRConfig config, const TokenLanguageFilter* languageFilter = nullptr)
        : TdtDecoderV3(withV2Blank(std::move(config)), languageFilter) {}

  private:
    static ASRConfig withV2Blank(ASRConfig config) {
        config.tdtConfig.blankId = blankId;
        return config;
    }
};

}  // namespace speech
