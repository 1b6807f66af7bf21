// Java Surface lookup and the throwing of Java exceptions, through the real JVM.

#include <android/log.h>
#include <gtest/gtest.h>
#include <hostcontrol/FaultInjection.h>

#include <string>

#include "LibraryTestSupport.h"
#include "SurfaceTestSupport.h"
#include "surface/JniSupport.h"

namespace nuvra::test {
namespace {

class JniSupportTest : public JniTest {
protected:
    // Both lookups of `surface` fail with `className` pending, with their own messages.
    void expectLookupsThrow(jobject surface, const std::string& className,
                            const std::string& windowMessage, const std::string& surfaceMessage) {
        EXPECT_EQ(getNativeWindow(env, surface), nullptr);
        expectPendingException(env, className, windowMessage);
        EXPECT_EQ(getSurface(env, surface), nullptr);
        expectPendingException(env, className, surfaceMessage);
    }
};

TEST_F(JniSupportTest, SurfaceLookupsThrowWhenThereIsNoNativeObject) {
    // A null Surface is refused before the platform's glue is asked.
    expectLookupsThrow(nullptr, "java.lang.NullPointerException", "surface", "surface");
    EXPECT_EQ(host::callCount("jni.android_view_Surface_getNativeWindow"), 0u);
    // Never attached (or released).
    jclass surfaceClass = env->FindClass("android/view/Surface");
    jobject surface = env->NewObject(surfaceClass, env->GetMethodID(surfaceClass, "<init>", "()V"));
    expectLookupsThrow(surface, "java.lang.IllegalArgumentException",
                       "Surface had no valid native window.",
                       "Surface had no valid native Surface.");
    // An exception from the platform's glue is left as it is.
    host::injectFault("jni.android_view_Surface_getNativeWindow", -1);
    host::injectFault("jni.android_view_Surface_getSurface", -1);
    expectLookupsThrow(surface, "java.lang.IllegalStateException", "injected fault",
                       "injected fault");
    // Nothing was discarded on the way.
    EXPECT_TRUE(logTexts(kJniHelpTag, ANDROID_LOG_WARN).empty());
}

// The message string is made before the pending exception: making it while an exception is
// pending would itself be a JNI misuse. The pending one is summarised by its class and message.
TEST_F(JniSupportTest, PendingExceptionIsDiscardedWithItsSummary) {
    for (const char* message : {"m", static_cast<const char*>(nullptr)}) {
        host::clearCapturedLogs();
        jstring text = env->NewStringUTF("bad 7");
        env->ThrowNew(env->FindClass("java/lang/IllegalStateException"), message);
        EXPECT_EQ(android::jnihelp::ThrowException(env, "java/lang/IllegalArgumentException",
                                                   "(Ljava/lang/String;)V", text),
                  0);
        expectPendingException(env, "java.lang.IllegalArgumentException", "bad 7");
        const std::string pending = std::string("IllegalStateException") + (message ? ": m" : "");
        EXPECT_EQ(logTexts(kJniHelpTag, ANDROID_LOG_WARN),
                  std::vector<std::string>{"Discarding pending exception (java.lang." + pending +
                                           ") to throw java/lang/IllegalArgumentException"});
    }
}

// Messages are cut to 511 characters; a null message string constructs the exception without one.
TEST_F(JniSupportTest, MessagesAreCutTo511CharactersOrLeftOut) {
    std::string text(600, 'x');
    text[510] = 'y';
    EXPECT_EQ(jniThrowExceptionFmt(env, "java/lang/IllegalArgumentException", "%s", text.c_str()),
              0);
    expectPendingException(env, "java.lang.IllegalArgumentException", text.substr(0, 511));
    EXPECT_EQ(android::jnihelp::ThrowException(env, "java/lang/IllegalArgumentException",
                                               "(Ljava/lang/String;)V",
                                               static_cast<jstring>(nullptr)),
              0);
    expectPendingException(env, "java.lang.IllegalArgumentException", std::nullopt);
}

TEST_F(JniSupportTest, MissingClassOrConstructorFailsWithTheJvmsErrorPending) {
    const struct {
        const char* className;
        const char* line;
        const char* pending;
    } cases[] = {
            {"java/lang/NoSuchThrowable",
             "Unable to find exception class java/lang/NoSuchThrowable",
             "java.lang.NoClassDefFoundError"},
            // java.lang.Object has no constructor taking a String.
            {"java/lang/Object",
             "Failed to find constructor for 'java/lang/Object' '(Ljava/lang/String;)V'",
             "java.lang.NoSuchMethodError"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(jniThrowExceptionFmt(env, c.className, "x"), -1);
        EXPECT_TRUE(logged(kJniHelpTag, ANDROID_LOG_ERROR, c.line));
        std::optional<JavaException> e = takePendingException(env);
        EXPECT_EQ(e ? e->className : "", c.pending);
    }
}

}  // namespace
}  // namespace nuvra::test
