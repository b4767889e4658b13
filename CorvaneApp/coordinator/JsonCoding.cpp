#include "CorvaneApp/coordinator/JsonCoding.h"

namespace corvane {

Json parseJson(std::string_view text) {
    try {
        return Json::parse(text.begin(), text.end());
    } catch (const Json::exception& error) {  // syntax, and numbers beyond a double ("1e400")
        throw DecodingError(std::string("The data couldn't be read because it isn't valid JSON (") +
                            error.what() + ")");
    }
}

}  // namespace corvane
