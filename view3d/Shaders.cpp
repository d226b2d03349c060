// Sources of the four shader programs of the 3D map view (GLSL 3.30 core).
#include "Simple3DObject.h"

const char* VERTEX_SHADER =
    "#version 330 core\n"
    "layout(location = 0) in vec4 in_VertexRGBA;\n"
    "uniform mat4 u_mvpMatrix;\n"
    "uniform float pointsize;\n"
    "out vec3 b_color;\n"
    "void main() {\n"
    "   uint vertexColor = floatBitsToUint(in_VertexRGBA.w); \n"
    "   b_color = vec3(((vertexColor & uint(0x00FF0000)) >> 16) / 255.f, ((vertexColor & uint(0x0000FF00)) >> 8) / "
    "255.f, (vertexColor & uint(0x000000FF)) / 255.f);\n"
    "\tgl_Position = u_mvpMatrix * vec4(in_VertexRGBA.xyz, 1);\n"
    "   gl_PointSize = pointsize;\n"
    "}";

static const char kColorFragment[] =
    "#version 330 core\n"
    "in vec3 b_color;\n"
    "layout(location = 0) out vec4 out_Color;\n"
    "void main() {\n"
    "   out_Color = vec4(b_color, 1);\n"
    "}";

const char* FRAGMENT_SHADER = kColorFragment;
const char* FRAGMENT_SHADER_UNI = kColorFragment;

const char* VERTEX_SHADER_UNI =
    "#version 330 core\n"
    "layout(location = 0) in vec3 in_Vertex;\n"
    "uniform mat4 u_mvpMatrix;\n"
    "out vec3 b_color;\n"
    "void main() {\n"
    "   b_color = vec3(0.2,0.5,0.8);\n"
    "\tgl_Position = u_mvpMatrix * vec4(in_Vertex, 1);\n"
    "}";

const char* VERTEX_SHADER_TEXTURE =
    "#version 330 core\n"
    "layout(location = 0) in vec3 in_Vertex;\n"
    "layout(location = 1) in vec2 in_UVs;\n"
    "uniform mat4 u_mvpMatrix;\n"
    "out vec2 UV;\n"
    "void main() {\n"
    "   gl_Position = u_mvpMatrix * vec4(in_Vertex, 1);\n"
    "    UV = in_UVs;\n"
    "}\n";

const char* FRAGMENT_SHADER_TEXTURE =
    "#version 330 core\n"
    "in vec2 UV;\n"
    "uniform sampler2D texture_sampler;\n"
    "void main() {\n"
    "    gl_FragColor = vec4(texture(texture_sampler, UV).bgr, 1.0);\n"
    "}\n";

const char* VERTEX_SHADER_PHONG =
    "#version 330 core\n"
    "layout(location = 0) in vec3 in_Vertex;\n"
    "layout(location = 2) in vec3 in_Normal;\n"
    "varying vec4 position;  // position of the vertex (and fragment) in world space\n"
    "varying vec3 varyingNormalDirection;  // surface normal vector in world space\n"
    "uniform mat4 u_mvpMatrix;\n"
    "uniform mat4 u_lightMatrix;\n"
    "uniform vec3 u_color;\n"
    "uniform mat3 m_3x3_inv_transp;\n"
    "uniform float pointsize;\n"
    "out vec3 b_normal;\n"
    "void main()\n"
    "{\n"
    "  position = u_lightMatrix * vec4(in_Vertex, 1);\n"
    "  varyingNormalDirection = normalize(in_Normal);\n"
    "  gl_Position = u_mvpMatrix * vec4(in_Vertex, 1);\n"
    "   gl_PointSize = pointsize;\n"
    "}";

// Phong shading with three directional lights fixed in world space and a bluish material.
const char* FRAGMENT_SHADER_PHONG =
    "#version 330 core\n"
    "in vec4 position;\n"
    "in vec3 varyingNormalDirection;\n"
    "uniform mat4 u_lightMatrix;\n"
    "layout(location = 0) out vec4 out_Color;\n"
    "struct lightSource {\n"
    "  vec4 position;\n"
    "  vec4 diffuse;\n"
    "  vec4 specular;\n"
    "  float constantAttenuation, linearAttenuation, quadraticAttenuation;\n"
    "  float spotCutoff, spotExponent;\n"
    "  vec3 spotDirection;\n"
    "};\n"
    "const int numberOfLights = 3;\n"
    "lightSource lights[numberOfLights];\n"
    "lightSource light0 = lightSource(vec4(0.0, 1.0, 0.0, 0.0), vec4(0.16, 0.5, 0.72, 1.0),\n"
    "    vec4(0.15, 0.15, 0.35, 1.0), 0.3, 0.2, 0.0, 180.0, 5.0, vec3(0.0, 0.0, 0.0));\n"
    "lightSource light1 = lightSource(vec4(1.0, 0.0, 0.0, 0.0), vec4(0.16, 0.5, 0.72, 1.0),\n"
    "    vec4(0.15, 0.15, 0.35, 1.0), 0.4, 0.2, 0.0, 180.0, 5.0, vec3(0.0, 0.0, 0.0));\n"
    "lightSource light2 = lightSource(vec4(-1.0, 0.0, 0.0, 0.0), vec4(0.16, 0.5, 0.72, 1.0),\n"
    "    vec4(0.15, 0.15, 0.35, 1.0), 0.4, 0.2, 0.0, 180.0, 5.0, vec3(0.0, 0.0, 0.0));\n"
    "vec4 scene_ambient = vec4(0.7, 0.7, 0.7, 1.0);\n"
    "struct material {\n"
    "  vec4 ambient;\n"
    "  vec4 diffuse;\n"
    "  vec4 specular;\n"
    "  float shininess;\n"
    "};\n"
    "material frontMaterial = material(vec4(0.204, 0.56, 0.86, 1.0), vec4(0.7, 0.7, 0.7, 1.0),\n"
    "    vec4(0.4, 0.4, 0.4, 1.0), 10.0);\n"
    "void main() {\n"
    "  lights[0] = light0;\n"
    "  lights[1] = light1;\n"
    "  lights[2] = light2;\n"
    "  vec3 normalDirection = normalize(varyingNormalDirection);\n"
    "  vec3 viewDirection = normalize(vec3(u_lightMatrix * vec4(0.0, 0.0, 0.0, 1.0) - position));\n"
    "  vec3 totalLighting = vec3(scene_ambient) * vec3(frontMaterial.ambient);\n"
    "  for (int index = 0; index < numberOfLights; index++) {\n"
    "    vec3 lightDirection = normalize(vec3(lights[index].position));\n"
    "    float attenuation = 1.0;\n"
    "    float lambert = dot(normalDirection, lightDirection);\n"
    "    vec3 diffuseReflection = attenuation * vec3(lights[index].diffuse) *\n"
    "        vec3(frontMaterial.diffuse) * max(0.0, lambert);\n"
    "    vec3 specularReflection = vec3(0.0, 0.0, 0.0);\n"
    "    if (lambert >= 0.0) {\n"
    "      specularReflection = attenuation * vec3(lights[index].specular) *\n"
    "          vec3(frontMaterial.specular) *\n"
    "          pow(max(0.0, dot(reflect(-lightDirection, normalDirection), viewDirection)),\n"
    "              frontMaterial.shininess);\n"
    "    }\n"
    "    totalLighting = totalLighting + diffuseReflection + specularReflection;\n"
    "  }\n"
    "  out_Color = vec4(totalLighting, 1.0);\n"
    "}\n";
