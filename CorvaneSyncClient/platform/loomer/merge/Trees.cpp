#include "CorvaneSyncClient/platform/loomer/merge/Trees.h"

namespace corvane::loomer {

Content sentContent(const Node& node) {
  Content content = node.client->content;
  String Content::*const needed = node.entity == Entity::folder ? &Content::name : &Content::url;
  if (content.*needed) return content;
  if (node.base) {
    content.*needed = node.base->content.*needed;
  } else if (node.truth) {
    content.*needed = node.truth->content.*needed;
  }
  return content;
}

}  // namespace corvane::loomer
