# The layers, bottom to top: Platform, AsicSwTable, AsicSim, MeridL3Tunnel.
# A layer's target sees its own headers and those of the layers it links,
# nothing more, so that an include of a layer above it, or of the simulator
# from the tables, does not compile.
#
# The layers are folders of one source root and are included by the folder's
# name ("AsicSwTable/X.h"), so the root cannot be an include directory: it
# would show every layer. Each layer gets one in the build tree instead,
# holding a single link named like the layer, to the layer's folder.
# Platform needs none: its own folder is already the root of its headers.

# Sets `out_var` to the include directory that shows `layer` alone.
function(l3tunnel_layer_include_dir layer out_var)
  set(dir ${PROJECT_BINARY_DIR}/layer-include/${layer})
  file(MAKE_DIRECTORY ${dir})
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${layer} ${dir}/${layer} SYMBOLIC)
  set(${out_var} ${dir} PARENT_SCOPE)
endfunction()
