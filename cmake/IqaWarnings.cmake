# Warning flags shared by every target of the project.
add_library(iqa_warnings INTERFACE)
target_compile_options(iqa_warnings INTERFACE -Wall -Wextra -Wshadow -Wconversion-null
                       $<$<BOOL:${IQA_WERROR}>:-Werror>)
