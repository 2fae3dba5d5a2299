#include "simulated/Lifetimes.h"

#include <map>

namespace mirel::simulated {

void Lifetimes::born(const void* object, const char* kind) {
    m_lives.insert_or_assign(object, Life{kind, true});
}

void Lifetimes::died(const void* object) {
    m_lives.try_emplace(object, Life{"object of the framework", false}).first->second.lives = false;
}

const char* Lifetimes::dead(const void* object) const {
    const auto life = m_lives.find(object);
    return life != m_lives.end() && !life->second.lives ? life->second.kind : nullptr;
}

std::string Lifetimes::living() const {
    std::map<std::string, int> counts;
    for (const auto& [object, life] : m_lives)
        if (life.lives)
            ++counts[life.kind];
    std::string text;
    for (const auto& [kind, count] : counts)
        text += (text.empty() ? "" : ", ") + std::to_string(count) + ' ' + kind;
    return text;
}

} // namespace mirel::simulated
