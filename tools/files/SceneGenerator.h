// Deterministic, natural-looking RGB scenes for the sample camera folder and the benchmarks:
// a sky gradient, fractal terrain texture, soft objects and sensor noise.
#ifndef IQA_TOOLS_FILES_SCENE_GENERATOR_H
#define IQA_TOOLS_FILES_SCENE_GENERATOR_H

#include <cstdint>
#include <vector>

namespace iqa_tools {

// width x height RGB pixels; the same seed always gives the same scene.
std::vector<unsigned char> RenderScene(int width, int height, uint32_t seed);

}  // namespace iqa_tools

#endif  // IQA_TOOLS_FILES_SCENE_GENERATOR_H
