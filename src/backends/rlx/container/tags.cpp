#include "backends/rlx/container/tags.hpp"

#include "backends/rlx/container/ebml.hpp"

namespace oru::rlx {

void putTag(Bytes& out, const char* name, const std::string& value) {
    Bytes tag;
    putText(tag, ID_TAG_NAME, name);
    putText(tag, ID_TAG_STRING, value);
    putMaster(out, ID_SIMPLE_TAG, tag);
}

void putBinaryTag(Bytes& out, const char* name, ByteView data) {
    Bytes tag;
    putText(tag, ID_TAG_NAME, name);
    putBinary(tag, ID_TAG_BINARY, data);
    putMaster(out, ID_SIMPLE_TAG, tag);
}

Bytes wrapTags(const Bytes& simpleTags) {
    Bytes tag;
    putMaster(tag, ID_TARGETS, {});
    tag.insert(tag.end(), simpleTags.begin(), simpleTags.end());
    Bytes body;
    putMaster(body, ID_TAG, tag);
    Bytes out;
    putMaster(out, ID_TAGS, body);
    return out;
}

}  // namespace oru::rlx
