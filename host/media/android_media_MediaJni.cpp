// JNI_OnLoad of libmedia_jni: registers the natives of the media classes when the Java side
// loads the library (System.loadLibrary("media_jni")).

#define LOG_TAG "MediaJni"

#include <jni.h>
#include <log/log.h>

int register_android_media_ImageReader(JNIEnv* env);

extern "C" jint JNI_OnLoad(JavaVM* vm, void* /*reserved*/) {
    JNIEnv* env = nullptr;
    if (vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_4) != JNI_OK) {
        ALOGE("ERROR: GetEnv failed\n");
        return -1;
    }
    if (register_android_media_ImageReader(env) != 0) {
        ALOGE("ERROR: ImageReader native registration failed");
        return -1;
    }
    return JNI_VERSION_1_4;
}
