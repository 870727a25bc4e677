// A kernel without any library: what device code generation makes of it is the image to embed.
__kernel void Scale(__global float* values, float factor) {
  values[__builtin_amdgcn_workitem_id_x()] *= factor;
}
