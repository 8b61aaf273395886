#include "backends/calibration_fetch/download.hpp"

#include <curl/curl.h>

#include <memory>
#include <string_view>
#include <utility>

#include "utils/text_file.hpp"

namespace oru {
namespace {

constexpr long kMostRedirections = 5;

struct CurlFree {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    void operator()(CURLU* handle) const { curl_url_cleanup(handle); }
    void operator()(char* text) const { curl_free(text); }
};

Download failed(std::string defect) {
    return {{}, std::move(defect), Completeness::KNOWN};
}

/// The local path of a file: address, empty when it is none.
std::string localPath(const std::string& address) {
    const std::unique_ptr<CURLU, CurlFree> url(curl_url());
    if (!url || curl_url_set(url.get(), CURLUPART_URL, address.c_str(), 0) != CURLUE_OK) {
        return {};
    }
    char* text = nullptr;
    if (curl_url_get(url.get(), CURLUPART_SCHEME, &text, 0) != CURLUE_OK) {
        return {};
    }
    const std::unique_ptr<char, CurlFree> scheme(text);
    if (std::string_view(scheme.get()) != "file" ||
        curl_url_get(url.get(), CURLUPART_PATH, &text, CURLU_URLDECODE) != CURLUE_OK) {
        return {};
    }
    const std::unique_ptr<char, CurlFree> path(text);
    return path.get();
}

Download readFile(const std::string& path) {
    PlainText file = readPlainText(path, kCalibrationTextLimitBytes);
    return {std::move(file.text), std::move(file.defect), Completeness::KNOWN};
}

/// The text has room for all of it: nothing here may throw through the library, nor in the next one.
std::size_t appendText(const char* data, std::size_t size, std::size_t count, void* result) noexcept {
    std::string& text = *static_cast<std::string*>(result);
    if (size * count > kCalibrationTextLimitBytes - text.size()) {
        return 0;
    }
    text.append(data, size * count);
    return size * count;
}

/// A chunked transfer has no length but an end of its own.
std::size_t noteChunked(const char* data, std::size_t size, std::size_t count, void* result) noexcept {
    const std::string_view line(data, size * count);
    if (curl_strnequal(data, "transfer-encoding:", line.size() < 18 ? line.size() : 18) != 0 &&
        line.find("chunked") != line.npos) {
        *static_cast<bool*>(result) = true;
    }
    return size * count;
}

void setLimits(CURL* handle, std::chrono::milliseconds limit) {
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(limit.count()));
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limit.count()));
    curl_easy_setopt(handle, CURLOPT_MAXFILESIZE, static_cast<long>(kCalibrationTextLimitBytes));
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle, CURLOPT_MAXREDIRS, kMostRedirections);
    curl_easy_setopt(handle, CURLOPT_FAILONERROR, 1L);
    // Without it curl bounds name look-ups by a signal, which a library must not use.
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    // Without it the end of a transfer waits for a name server that does not answer, whatever the limit.
    curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L);
}

std::string failureText(CURL* handle, CURLcode code) {
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    if (code == CURLE_WRITE_ERROR || code == CURLE_FILESIZE_EXCEEDED) {
        return "it is too large";
    }
    return code == CURLE_HTTP_RETURNED_ERROR ? "the server answered " + std::to_string(status)
                                             : curl_easy_strerror(code);
}

Download fetch(const std::string& address, std::chrono::milliseconds limit) {
    const std::unique_ptr<CURL, CurlFree> handle(curl_easy_init());
    if (!handle) {
        return failed("no transfer could be started");
    }
    Download result;
    result.text.reserve(kCalibrationTextLimitBytes);
    bool chunked = false;
    setLimits(handle.get(), limit);
    curl_easy_setopt(handle.get(), CURLOPT_URL, address.c_str());
    curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, &appendText);
    curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, &result.text);
    curl_easy_setopt(handle.get(), CURLOPT_HEADERFUNCTION, &noteChunked);
    curl_easy_setopt(handle.get(), CURLOPT_HEADERDATA, &chunked);

    const CURLcode code = curl_easy_perform(handle.get());

    if (code != CURLE_OK) {
        return failed(failureText(handle.get(), code));
    }
    curl_off_t length = -1;
    curl_easy_getinfo(handle.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    result.text.shrink_to_fit();
    result.completeness = length >= 0 || chunked ? Completeness::KNOWN : Completeness::UNKNOWN;
    return result;
}

}  // namespace

Download downloadText(const std::string& address, std::chrono::milliseconds limit) {
    const std::string path = localPath(address);
    return path.empty() ? fetch(address, limit) : readFile(path);
}

}  // namespace oru
