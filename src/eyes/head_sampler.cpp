#include "eyes/head_sampler.h"

#include <unordered_map>

namespace kestrel::meridian {

void HeadSampler::build(const Correspondence& templateToHead,
                        const std::vector<const Correspondence*>& users) {
    entries_ = Correspondence();
    userColumns_.clear();
    std::unordered_map<int32_t, int32_t> columnOf;
    for (const Correspondence* user : users) {
        std::vector<int32_t>& columns = userColumns_.emplace_back();
        for (int32_t head : user->targets) {
            auto [it, added] = columnOf.emplace(head, static_cast<int32_t>(entries_.size()));
            columns.push_back(it->second);
            if (!added) continue;
            entries_.targets.push_back(head);
            if (templateToHead.isPairForm()) {
                entries_.pairSources.push_back(templateToHead.pairSources[head]);
                continue;
            }
            for (int c = 0; c < 3; ++c) {
                entries_.triangles.push_back(templateToHead.triangles[3 * head + c]);
                entries_.weights.push_back(templateToHead.weights[3 * head + c]);
            }
        }
    }
}

Eigen::Matrix3Xd HeadSampler::sample(const Eigen::Ref<const Eigen::Matrix3Xd>& templateHead) const {
    // The same arithmetic as carrying the whole template head over.
    return applyCorrespondence(entries_, templateHead);
}

Eigen::Matrix3Xd HeadSampler::gather(const Eigen::Matrix3Xd& sampled, size_t user) const {
    return applyIndexList(userColumns_.at(user), sampled);
}

}  // namespace kestrel::meridian
