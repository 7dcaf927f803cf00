#include "app/VornNSViewAdditions.h"
#include "app/toolkit/QtDescription.h"
#include "core/Log.h"

#include <optional>
#include <string_view>
#include <vector>

namespace {

/// The views inside `view`, in the order in which they were added; windows are left out.
std::vector<QWidget*> subviewsOf(const QWidget* view) {
    std::vector<QWidget*> subviews;
    for (QObject* child : view->children()) {
        auto* subview = qobject_cast<QWidget*>(child);
        if (subview != nullptr && !subview->isWindow())
            subviews.push_back(subview);
    }
    return subviews;
}

/// Null if the view has none.
QString identifierOf(const QWidget* view) {
    const QString name = view->objectName();
    return name.isEmpty() ? QString() : name;
}

bool hasIdentifier(const QWidget* view, const QString& identifier) {
    const QString own = identifierOf(view);
    return !own.isNull() && !identifier.isNull() &&
           own.compare(identifier, Qt::CaseInsensitive) == 0;
}

} // namespace

QWidget* VornNSViewAdditions::findViewWithIdentifier(QWidget* view, const QString& identifier,
                                                     const QMetaObject& viewType) {
    const std::vector<QWidget*> subviews = subviewsOf(view);
    logEvent("%@-%@-> identifier[%@] classname[%@]", view,
             "findViewWithIdentifier:viewType:", identifier,
             std::string_view(viewType.className()));
    logEvent("self.subviews = %@", subviews);
    for (QWidget* subview : subviews) {
        logEvent("checking => aview[%@] = %@ (%@)", identifierOf(subview), subview,
                 std::string_view(subview->metaObject()->className()));
        if (subview->metaObject()->inherits(&viewType)) {
            if (hasIdentifier(subview, identifier))
                return subview;
        } else if (QWidget* found = findViewWithIdentifier(subview, identifier, viewType)) {
            return found;
        }
    }
    return nullptr;
}

QWidget* findObjectWithIdentifier(QWidget* view, const QString& identifier) {
    const std::vector<QWidget*> subviews = subviewsOf(view);
    logEvent("%s -> looking for identifier[%@] in subviews =  %@", "findObjectWithIdentifier",
             identifier, subviews);
    for (QWidget* subview : subviews) {
        logEvent("found %@ ", subview);
        if (hasIdentifier(subview, identifier))
            return subview;
        if (subviewsOf(subview).empty())
            continue;
        if (QWidget* found = findObjectWithIdentifier(subview, identifier))
            return found;
    }
    return nullptr;
}
