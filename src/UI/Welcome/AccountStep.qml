import QtQuick
import Quillo

AccountChoices {
    goesWithout: true
    onWithout: welcome.next()
}
