// A kernel that needs no library. Compiled, it is the device image to embed.
__kernel void Scale(__global float* values, float factor) {
  values[__builtin_amdgcn_workitem_id_x()] *= factor;
}
