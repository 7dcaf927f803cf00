#pragma once

#include "core/Description.h"

#include <QObject>
#include <QRect>
#include <QString>

#include <concepts>

/// How the toolkit's values print for the directive %@. A null text is absent.
void describe(BoundedText& out, const QString& text);
/// "{{x, y}, {width, height}}"
void describe(BoundedText& out, const QRect& rect);

/// "<Class: 0xADDRESS>"; "(null)" for none.
void describeObject(BoundedText& out, const QObject* object);
void describeObjectElement(BoundedText& out, const QObject* object);
template <std::derived_from<QObject> T>
void describe(BoundedText& out, T* const& object) {
    describeObject(out, object);
}
template <std::derived_from<QObject> T>
void describeElement(BoundedText& out, T* const& object) {
    describeObjectElement(out, object);
}
