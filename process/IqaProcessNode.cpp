// The node interface's out-of-line destructor anchors its virtual table in the library.
#include "IqaProcessNode.h"

namespace IQA {

IqaProcessNode::~IqaProcessNode() = default;

}  // namespace IQA
