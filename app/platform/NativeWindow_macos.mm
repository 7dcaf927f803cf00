#include "app/platform/NativeWindow.h"

#include <QGuiApplication>

#import <AppKit/AppKit.h>
#import <UniformTypeIdentifiers/UniformTypeIdentifiers.h>

namespace {

/// Nil if Qt draws without the system's windows.
NSWindow* nativeWindow(const QWidget* window) {
    if (window == nullptr || QGuiApplication::platformName() != QLatin1String("cocoa"))
        return nil;
    return ((__bridge NSView*)reinterpret_cast<void*>(window->winId())).window;
}

LocationList locationsOf(NSArray<NSURL*>* urls) {
    LocationList locations;
    for (NSURL* url in urls)
        locations.emplace_back(FileUrl::fileURLWithPath(url.fileSystemRepresentation));
    return locations;
}

} // namespace

bool setNativeWindowLevel(QWidget* window, int level) {
    NSWindow* native = nativeWindow(window);
    native.level = level;
    return native != nil;
}

bool hasNativeSheet(const QWidget* window) {
    return nativeWindow(window).attachedSheet != nil;
}

bool beginNativeChoosePanel(const ChoosePanel::Settings& settings, QWidget* window,
                            const ChoosePanel::Completion& completion) {
    NSWindow* native = nativeWindow(window);
    if (native == nil)
        return false;
    NSOpenPanel* panel = [NSOpenPanel openPanel];
    panel.canChooseFiles = YES;
    panel.canChooseDirectories = YES;
    panel.allowsMultipleSelection = YES;
    panel.treatsFilePackagesAsDirectories = NO;
    panel.message = settings.message.toNSString();
    panel.prompt = settings.prompt.toNSString();
    panel.nameFieldLabel = settings.nameFieldLabel.toNSString();
    panel.allowedContentTypes =
        @[ [UTType typeWithFilenameExtension:settings.allowedFileType.toNSString()
                            conformingToType:UTTypePackage] ];
    const ChoosePanel::Completion done = completion; // outlives this call, unlike the reference
    [panel beginSheetModalForWindow:native
                  completionHandler:^(NSModalResponse response) {
                    if (response == NSModalResponseOK)
                        done(ChoosePanel::confirmed, locationsOf(panel.URLs));
                    else
                        done(ChoosePanel::cancelled, {});
                  }];
    return true;
}
